// The locks of recorders.
#pragma once

#include <functional>
#include <string>

namespace kestro::avi {

// While files of a pattern are recorded, a hidden file in their folder is locked:
// ".cam-%05d.avi.lock".
constexpr char kLockEnding[] = ".lock";

// Whether such a lock is held in the folder for a pattern for which `concerns` is true.
bool LockHeld(std::string const& folder,
              std::function<bool(std::string const& pattern)> const& concerns);

}  // namespace kestro::avi
