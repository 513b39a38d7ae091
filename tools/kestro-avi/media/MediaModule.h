// Finding and loading the module that knows libavformat.
#pragma once

#include "media/Media.h"

namespace kestro::tool {

// The module, loaded by the first call: it brings two hundred libraries, and most verbs do without.
// Throws Error where it is missing.
Media& LoadMedia();

}  // namespace kestro::tool
