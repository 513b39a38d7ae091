// Collects the data for the picture of a file from its index and chunks.
#pragma once

#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

using base::int64;

struct Survey {
  struct Packet {
    int64 offset;
    double begin, end;  // seconds, in its track
    unsigned size;      // payload bytes
    unsigned track;
    bool key;
  };
  struct Part {
    char const* kind;  // "header", "JUNK", "movi", "index" or "other"
    int64 begin, end;
  };

  // Uses the index, which also marks key frames, if it is complete; else the data.
  explicit Survey(avi::AviFile& avi);

  std::vector<Packet> packets;  // in file order
  std::vector<Part> parts;      // in file order; together they cover the file
  double duration = 0;          // seconds

 private:
  void AddPackets(avi::AviFile& avi);
  void AddParts(avi::AviFile const& avi);
  void AddPart(char const* kind, int64 begin, int64 end);
};

// The bit rate of a track in bit/s for each interval of `step` seconds. The bits of a packet are
// spread over its duration. The last interval may be shorter.
std::vector<double> BitRates(Survey const& survey, std::size_t track, double step);

// How far a track's data is ahead of another's, in seconds, by offset in the file.
struct Lead {
  int64 offset;
  double low, high;  // least and greatest value in an interval of the file
};
std::vector<Lead> Leads(Survey const& survey, std::size_t track, std::size_t other, int64 interval);

}  // namespace kestro::tool
