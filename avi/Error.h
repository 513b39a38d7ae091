// Exit codes, and the exception that carries one.
#pragma once

#include <stdexcept>
#include <string>

#include "base/Types.h"

namespace kestro::avi {

// Also the exit codes of the tool.
enum ExitCode {
  kOk = 0,
  kFindings = 1,       // done, with findings
  kUsage = 2,          // invalid options or arguments
  kIo = 3,             // a file cannot be opened, read or written
  kUnusable = 4,       // not an AVI file, or an input that cannot be recorded
  kInterrupted = 130,  // ended by a signal; all files were closed properly
};

// A message of one line, and a code.
class KESTRO_API Error : public std::runtime_error {
 public:
  Error(ExitCode code, std::string const& text) : std::runtime_error(text), _code(code) {}
  ExitCode Code() const { return _code; }

 private:
  ExitCode _code;
};

}  // namespace kestro::avi
