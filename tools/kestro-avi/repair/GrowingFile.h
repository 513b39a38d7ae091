// Opens a recording that has not been closed yet.
#pragma once

#include <memory>
#include <string>

#include "base/IO.h"

namespace kestro::tool {

// Reads the file as it would be if the recording had ended with the last sync. Where headers and
// index are kept in a side file, they are read once, now. Throws Error.
std::unique_ptr<base::IO> OpenGrowing(std::string const& path);

}  // namespace kestro::tool
