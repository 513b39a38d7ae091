// Files with the hashes of a recording: FILE.sha256.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "avi/Hashes.h"

namespace kestro::tool {

// The last line is "HASH  FILE", as sha256sum writes it; before it, each packet has a comment line
// "# TRACK NUMBER SIZE HASH", in file order.
class HashFile {
 public:
  // Reads an AVI file. Throws Error.
  static HashFile Of(std::string const& path, avi::HashProgress const& advance);
  // Reads a hash file. Throws Error.
  static HashFile Read(std::string const& path);

  struct Difference {
    std::uint64_t track, number;  // of the packet
    char const* change;           // "differs", "missing" or "new"
  };
  struct DifferenceList {
    std::vector<Difference> first;
    std::uint64_t count = 0;         // of packets that differ
    std::vector<std::string> lines;  // for people; none if the recordings are the same
  };
  // How another recording differs from this one.
  DifferenceList Differences(HashFile const& other) const;

 private:
  std::vector<avi::PacketHash> _packets;
  std::string _hash;  // of the file
};

}  // namespace kestro::tool
