// Finds out whether a file is being written.
#pragma once

#include <string>

namespace kestro::tool {

// Whether any process has the file open for writing. Where the system does not answer this, because
// the file belongs to another user or is not on a local file system: whether it was written in the
// last ten seconds.
bool OpenForWriting(std::string const& path);

}  // namespace kestro::tool
