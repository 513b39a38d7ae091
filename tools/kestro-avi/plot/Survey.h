// What a picture of a file shows, gathered from its index and its chunks.
#pragma once

#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

using base::int64;

struct Survey {
  struct Packet {
    int64 offset;
    double begin, end;  // seconds in its track
    unsigned size;      // of the payload
    unsigned track;
    bool key;
  };
  struct Part {
    char const* kind;  // "header", "JUNK", "movi", "index" or "other"
    int64 begin, end;
  };

  // By the index where it tells all, which knows key frames too, else by the data.
  explicit Survey(avi::AviFile& avi);

  std::vector<Packet> packets;  // in file order
  std::vector<Part> parts;      // ... which together are the file
  double duration = 0;          // seconds

 private:
  void AddPackets(avi::AviFile& avi);
  void AddParts(avi::AviFile const& avi);
  void AddPart(char const* kind, int64 begin, int64 end);
};

// Bits of a track in each stretch of `step` seconds, a packet's spread over its duration; as a rate
// in bit/s. The last stretch may be shorter.
std::vector<double> BitRates(Survey const& survey, std::size_t track, double step);

// How far a track's data is ahead of another's at places of the file, in seconds.
struct Lead {
  int64 offset;
  double low, high;  // the least and the most in a stretch of the file
};
std::vector<Lead> Leads(Survey const& survey, std::size_t track, std::size_t other, int64 stretch);

}  // namespace kestro::tool
