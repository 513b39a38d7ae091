// The file with the marker of a protected recording.
#pragma once

#include <string>

#include "avi/KeepMarker.h"
#include "recorder/Storage.h"

namespace kestro::record {

// Next to a recording, whose path the functions take. Whatever has the marker's name protects the
// recording; only plain files are written or read.
class MarkerFile {
 public:
  explicit MarkerFile(Storage& storage) : _storage(storage) {}

  // Writes a marker over the old one, so that one exists at any time. Durable on return. Returns
  // why it failed, else an empty text.
  std::string Write(std::string const& path, avi::KeepMarker const& marker) const;
  // The marker that exists; without events if there is none, or if it is damaged.
  avi::KeepMarker Read(std::string const& path) const;
  int Remove(std::string const& path) const;  // returns an errno, or 0

 private:
  Storage& _storage;
};

}  // namespace kestro::record
