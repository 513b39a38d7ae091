// The requests that a recording takes on its control socket.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "cli/Documents.h"

namespace kestro::tool {

// A request is one line of words, separated by spaces. Words may be quoted; \" and \\ stand for a
// quote and a backslash in them.
struct ControlRequest {
  static constexpr std::size_t kLongestLine = 4096;  // in bytes, without its end

  enum Kind { kEvent, kSplit, kStatus, kStop, kUnprotect, kHelp } kind = kHelp;
  std::string text;  // kEvent: the label, kUnprotect: the file
  struct Times {
    std::int64_t before_ns, after_ns;
  };
  std::optional<Times> times;  // kEvent

  // Parses a line without its end. Throws Error.
  static ControlRequest Parse(std::string_view line);
  // Why a line cannot come from a sane client; null if it can.
  static char const* Fault(std::string_view line);
  // The requests and what they do.
  static Json Help();
};

}  // namespace kestro::tool
