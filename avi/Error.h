// Why something could not be done.
#pragma once

#include <stdexcept>
#include <string>

#include "base/Types.h"

namespace kestro::avi {

// The tool's exit codes, too.
enum ExitCode {
  kOk = 0,
  kFindings = 1,       // done, but something was noticed
  kUsage = 2,          // what was asked for cannot be
  kIo = 3,             // a file that cannot be opened, read or written
  kUnusable = 4,       // not an AVI file, or an input that cannot be recorded
  kInterrupted = 130,  // a signal; everything was closed properly
};

// One line for people, and a code.
class KESTRO_API Error : public std::runtime_error {
 public:
  Error(ExitCode code, std::string const& text) : std::runtime_error(text), _code(code) {}
  ExitCode Code() const { return _code; }

 private:
  ExitCode _code;
};

}  // namespace kestro::avi
