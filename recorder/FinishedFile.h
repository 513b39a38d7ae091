// What becomes of a file once the muxer has closed it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "recorder/OrdinaryClose.h"
#include "recorder/RecorderOptions.h"

namespace kestro::record {

struct FinishedFile {
  std::string path;
  std::uint64_t packets = 0;  // that were taken
  std::int64_t duration_ns = 0;
  bool complete = false;
  std::vector<std::string> errors, warnings;
  FrontIndex index;
};

// Makes an ordinary file of it where that is wanted, and reports how it ended. Takes as long as
// reading the file's index.
void Conclude(FinishedFile const& file, RecorderOptions const& options,
              std::function<void(Event)> const& report);

}  // namespace kestro::record
