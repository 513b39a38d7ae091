// The options of the command play.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/Answer.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "stream/IDemuxer.h"

namespace kestro::tool {

class PlayOptions {
 public:
  using Mode = stream::IDemuxer::PlayMode;

  void AddTo(Options& options);  // the object must outlive the command
  // Sets the members below from the command line. Throws Error.
  void Check();

  std::string file, plugin;
  std::string modeName = "normal";
  Mode mode = Mode::kNormal;
  std::int64_t from_ms = -1, to_ms = -1;  // negative: not given
  std::vector<std::int64_t> seeks_ms;
  unsigned video = 0, every = 1;
  JsonOption json;
  bool realtime = false, follow = false;
  std::optional<std::int64_t> preload;  // bytes
  ProgressOption progress;

 private:
  std::string _from, _to, _preload;
  std::vector<std::string> _seeks;
};

}  // namespace kestro::tool
