// Command line completions for three shells.
#pragma once

#include <string>

#include "pages/Help.h"

namespace kestro::tool {

std::string BashCompletion(Help const& help);
std::string ZshCompletion(Help const& help);
std::string FishCompletion(Help const& help);

}  // namespace kestro::tool
