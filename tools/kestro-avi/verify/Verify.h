// Checks an AVI file.
#pragma once

#include <functional>
#include <string>

#include "verify/Findings.h"

namespace kestro::tool {

using base::int64;

// Adds what is wrong with the file to `findings`; returns false when the file is unusable. `deep`:
// also check the video data. `advance` is called with the position reached. Throws Error when the
// file cannot be read.
bool Verify(
    std::string const& path, bool deep, Findings& findings,
    std::function<void(int64)> const& advance = [](int64) {});

}  // namespace kestro::tool
