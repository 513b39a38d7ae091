// How the recorder's parts say that something cannot be; it ends at the recorder's own functions.
#pragma once

#include <stdexcept>
#include <string>

#include "recorder/Recorder.h"

namespace kestro::record {

class Refusal : public std::runtime_error {
 public:
  Refusal(Code code, std::string const& text) : std::runtime_error(text), _code(code) {}
  Result Says() const { return {_code, what()}; }

 private:
  Code _code;
};

}  // namespace kestro::record
