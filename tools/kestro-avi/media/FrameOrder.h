// When coded frames are shown.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "media/FrameParser.h"

namespace kestro::tool {

// Looks at a track's frames in the order of the file and works out in which order they are shown.
//
//   for (...) order.Add(data, size);
//   order.Sort();
//   dts = n - order.Delay(); pts = order.Shown(n);    // in frames
class FrameOrder {
 public:
  // Without a parser, frames are shown as they come.
  explicit FrameOrder(std::unique_ptr<FrameParser> parser) : _parser(std::move(parser)) {}

  void Add(std::uint8_t const* data, std::size_t size);  // size 0: a frame that is missing
  void Sort();

  std::size_t Count() const { return _frames.size(); }
  std::int64_t Shown(std::size_t frame) const { return _frames[frame].shown; }
  bool Key(std::size_t frame) const { return _frames[frame].key; }
  // The least by which decoding goes ahead of showing, for every frame to be there in time.
  std::int64_t Delay() const { return _delay; }
  // The parameter sets of the first frame that has some; empty if none has.
  Bytes const& ParameterSets() const { return _sets; }

 private:
  struct Frame : FrameParser::Frame {
    std::int64_t shown;
  };
  void SortPeriod(std::size_t begin, std::size_t end);

  std::unique_ptr<FrameParser> _parser;
  Bytes _sets;
  std::vector<Frame> _frames;
  std::int64_t _delay = 0;
};

}  // namespace kestro::tool
