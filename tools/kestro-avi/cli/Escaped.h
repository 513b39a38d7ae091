// Makes text safe to show on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace kestro::tool {

// Replaces the control characters in one line of text, which may come from file names, by escapes
// such as \n and \x1b. `page`: the text has several lines; line ends, tabs and colours stay.
std::string Escaped(std::string_view text, bool page);

}  // namespace kestro::tool
