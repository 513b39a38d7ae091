// The storage of a recording: the application's or the system's.
#pragma once

#include "recorder/RecorderOptions.h"
#include "recorder/Storage.h"

namespace kestro::record {

inline Storage& StorageOf(RecorderOptions const& options) {
  static Storage system;
  return options.storage != nullptr ? *options.storage : system;
}

}  // namespace kestro::record
