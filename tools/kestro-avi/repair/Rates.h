// Which frame rates a recording gets when it is made again.
#pragma once

#include <string>
#include <vector>

#include "repair/Head.h"

namespace kestro::tool {

struct SpeedReport {
  std::vector<std::string> notes;     // of rates that a file does not hold as they are
  std::vector<std::string> warnings;  // of tracks that go at another speed than before
};

// Sets the rates of what is recorded, by the rules of "record". `option` replaces what the headers
// say; 0/1 for none. Throws Error for a rate that is unknown or cannot be recorded.
SpeedReport SetRates(Head& head, base::Fraction const& option);

}  // namespace kestro::tool
