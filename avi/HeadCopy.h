// A second copy of a recording's head, in its JUNK. Each sync rewrites the head: a power cut may
// leave garbage there.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "avi/RiffReader.h"

namespace kestro::avi {

// The copy begins at a multiple of kSector, the largest sector that is torn, more than one after
// the head:
//
//   +0  "kestroHC"   +8  size of all this   +12  CRC-32 of what follows
//  +16  the numbers of HeadPlaces, 32 bits each
//  +32  RIFF AVI: LIST hdrl [LIST INFO], as they are when the file is opened
struct HeadPlaces {
  unsigned data = 0;     // where the first chunk of movi stands
  unsigned entries = 0;  // where the entries of an index before movi begin, 0 for none,
  unsigned reserve = 0;  // ... and their bytes
  unsigned junk = 0;     // bytes of JUNK that were asked for
};

// Numbers as a file has them: 32 bits each, little-endian.
std::string Words(std::initializer_list<std::uint64_t> values);

struct HeadCopy {
  static constexpr unsigned kSector = 4096, kFront = 32;

  HeadPlaces places;
  int64 at;          // where it stands
  std::string head;  // from RIFF on

  static std::string Compose(std::string const& head, HeadPlaces const& places);
  // The first one that is whole, between two offsets and in the first 32 MiB, which is further than
  // a head reaches.
  static std::optional<HeadCopy> Find(RiffReader& file, int64 from = 0, int64 to = INT64_MAX);
};

}  // namespace kestro::avi
