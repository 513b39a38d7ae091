// Finds out whether a file is being written.
#pragma once

#include <optional>
#include <string>

namespace kestro::tool {

// Whether any process has the file open for writing. Empty where the system does not answer this:
// when the file belongs to another user, or is not on a local file system.
std::optional<bool> OpenForWriting(std::string const& path);

}  // namespace kestro::tool
