// Finds out whether a recording is still being written.
#pragma once

#include <string>

namespace kestro::tool {

// Whether a recorder holds the lock of the files that `path` may be one of, or a program has the
// file open for writing. `path` must be absolute.
bool IsBeingRecorded(std::string const& path);

}  // namespace kestro::tool
