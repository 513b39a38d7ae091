// Text in a file of JSON lines.
#pragma once

#include "media/libav/Input.h"
#include "media/libav/TextTrack.h"

namespace kestro::tool {

// One track out of lines such as {"pts_ms": 1500, "text": "hello"}, in any order.
class CueFile : public Input {
 public:
  // Whether the name is that of such a file.
  static bool Knows(std::string const& path);

  // Reads all of it. Throws Error naming the line that is wrong.
  CueFile(std::string const& path, InputOptions const& options, Timeline const& timeline);

  bool Read() override { return false; }  // the track has everything
  Extent Reach() const override { return {0, 0}; }

 private:
  InputClock _clock;
};

}  // namespace kestro::tool
