// A copy of the file header in the JUNK chunk. Each sync rewrites the header, and a power cut
// during the write may leave garbage there.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "avi/RiffReader.h"

namespace kestro::avi {

// The copy starts at a multiple of kSector, the largest sector size, and more than a sector after
// the header:
//
//   +0  "kestroHC"   +8  total size   +12  CRC-32 of the bytes that follow
//  +16  the fields of HeadPlaces, 32 bits each
//  +32  RIFF AVI: LIST hdrl [LIST INFO], as in a file that was just opened
struct HeadPlaces {
  unsigned data = 0;     // offset of the first chunk in movi
  unsigned entries = 0;  // offset of the entries of an index before movi, 0 for none,
  unsigned reserve = 0;  // and their size in bytes
  unsigned junk = 0;     // requested size of JUNK
};

// Encodes numbers as 32 bits each, little-endian.
std::string Words(std::initializer_list<std::uint64_t> values);

struct HeadCopy {
  static constexpr unsigned kSector = 4096, kFront = 32;

  HeadPlaces places;
  int64 at;          // offset of the copy
  std::string head;  // starts with RIFF

  static std::string Compose(std::string const& head, HeadPlaces const& places);
  // The first intact copy between two offsets; searches no further than the first 32 MiB.
  static std::optional<HeadCopy> Find(RiffReader& file, int64 from = 0, int64 to = INT64_MAX);
};

}  // namespace kestro::avi
