// The last steps for a file that the muxer has closed.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "recorder/OrdinaryClose.h"
#include "recorder/RecorderOptions.h"

namespace kestro::record {

struct FinishedFile {
  std::string path;
  std::uint64_t packets = 0;  // that the muxer accepted
  std::int64_t duration_ns = 0;
  bool complete = false;
  std::vector<std::string> errors, warnings;
  FrontIndex index;
  std::optional<Event> skew;  // the warning that its tracks are apart
};

// Turns the file into an ordinary one if the options ask for it, and reports the outcome. Takes as
// long as reading the file's index.
void FinishFile(FinishedFile const& file, RecorderOptions const& options,
                std::function<void(Event)> const& report);

}  // namespace kestro::record
