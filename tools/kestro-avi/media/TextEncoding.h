// Converts text to UTF-8.
#pragma once

#include <string>

namespace kestro::tool {

// Whether the system can convert from this encoding.
bool IsEncoding(std::string const& name);

bool IsUtf8(std::string const& text);

// Converts the text of a file. A byte order mark overrides `encoding` and is removed; without both,
// the text must be UTF-8. Throws an Error that names the line that is not in the encoding.
std::string ToUtf8(std::string text, std::string encoding, std::string const& path);

}  // namespace kestro::tool
