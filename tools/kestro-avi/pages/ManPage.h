// Writes the manual page.
#pragma once

#include <string>

#include "pages/Help.h"

namespace kestro::tool {

// Uses the macros of man(7).
std::string ManPage(Help const& help);

}  // namespace kestro::tool
