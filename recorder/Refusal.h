// The exception that the recorder uses inside; its public functions turn it into a Result.
#pragma once

#include <stdexcept>
#include <string>

#include "recorder/Recorder.h"

namespace kestro::record {

class Refusal : public std::runtime_error {
 public:
  Refusal(Code code, std::string const& text) : std::runtime_error(text), _code(code) {}
  Result ToResult() const { return {_code, what()}; }

 private:
  Code _code;
};

}  // namespace kestro::record
