#include "media/FrameOrder.h"

#include <algorithm>
#include <numeric>

namespace kestro::tool {

void FrameOrder::Add(std::uint8_t const* data, std::size_t size) {
  // A frame that cannot be parsed is shown after the previous one.
  Frame frame{{_frames.empty() ? 0 : _frames.back().place, false}, 0};
  if (size != 0 && _parser) {
    static_cast<FrameParser::Frame&>(frame) = _parser->Parse(data, size);
    if (_sets.empty() && frame.key) _sets = _parser->ParameterSets(data, size);
  }
  _frames.push_back(frame);
}

void FrameOrder::Sort() {
  for (std::size_t begin = 0; begin < _frames.size();) {
    std::size_t end = begin + 1;
    while (end < _frames.size() && !_frames[end].key) ++end;
    SortPeriod(begin, end);
    begin = end;
  }
}

void FrameOrder::SortPeriod(std::size_t begin, std::size_t end) {
  std::vector<std::size_t> order(end - begin);
  std::iota(order.begin(), order.end(), begin);
  std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
    return _frames[a].place < _frames[b].place;
  });
  for (std::size_t i = 0; i < order.size(); ++i) {
    auto const shown = static_cast<std::int64_t>(begin + i);
    _frames[order[i]].shown = shown;
    _delay = std::max(_delay, static_cast<std::int64_t>(order[i]) - shown);
  }
}

}  // namespace kestro::tool
