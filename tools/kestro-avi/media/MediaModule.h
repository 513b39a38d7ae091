// Loads the media module.
#pragma once

#include "media/Media.h"

namespace kestro::tool {

// The module, which the first call loads: it pulls in two hundred libraries, and most commands do
// not need it. Throws Error when it is missing.
Media& LoadMedia();

}  // namespace kestro::tool
