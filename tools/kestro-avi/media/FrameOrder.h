// Finds the order in which coded frames are shown.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "media/FrameParser.h"

namespace kestro::tool {

// Takes a track's frames in file order and determines the order in which they are shown.
//
//   for (...) order.Add(data, size);
//   order.Sort();
//   dts = n - order.Delay(); pts = order.Shown(n);    // in frames
class FrameOrder {
 public:
  // Without a parser, frames are shown in file order.
  explicit FrameOrder(std::unique_ptr<FrameParser> parser) : _parser(std::move(parser)) {}

  void Add(std::uint8_t const* data, std::size_t size);  // size 0: a missing frame
  void Sort();

  std::size_t Count() const { return _frames.size(); }
  std::int64_t Shown(std::size_t frame) const { return _frames[frame].shown; }
  bool Key(std::size_t frame) const { return _frames[frame].key; }
  // The least number of frames by which decoding must be ahead of showing.
  std::int64_t Delay() const { return _delay; }
  // The parameter sets of the first frame with parameter sets; empty if there is none.
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
