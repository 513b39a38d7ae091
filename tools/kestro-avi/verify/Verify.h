// The check of an AVI file as a whole.
#pragma once

#include <functional>
#include <string>

#include "verify/Findings.h"

namespace kestro::tool {

using base::int64;

// Whether the file can be used at all; what is wrong with it goes to `findings`. `deep` also looks
// into the video data. `advance` is told how far the file is checked. Throws Error when the file
// cannot be read.
bool Verify(
    std::string const& path, bool deep, Findings& findings,
    std::function<void(int64)> const& advance = [](int64) {});

}  // namespace kestro::tool
