// Checks which part of the data an index covers.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "avi/Index.h"
#include "repair/Layout.h"

namespace kestro::tool {

struct TrackSum {
  base::uint64 packets = 0, bytes = 0;
  base::uint64 units = 0;    // as the length in the stream header counts them
  base::uint64 entries = 0;  // packets with an index entry
  unsigned largest = 0;      // bytes

  // A packet of that many bytes. The plug-in gives empty ones no index entry.
  void Add(avi::AviTrack const& track, unsigned size);
  void operator+=(TrackSum const& more);
};

// The entries must follow each other without gaps. Of their chunks, only a few hundred are read,
// among them the last ones.
//
//   Coverage coverage(file, layout);
//   for (...) coverage.Add(entry);   // of an index, in order
//   coverage.Finish();               // then see Good()
class Coverage {
 public:
  Coverage(avi::RiffReader& file, Layout const& layout);

  void Add(avi::IndexEntry const& entry);
  void Finish();
  // Whether all packets before this offset have an entry, except for empty ones, which count.
  bool Reaches(int64 end) { return PassEmpty(end); }

  bool Good() const { return _fault.empty(); }
  std::string const& Fault() const { return _fault; }
  base::uint64 Entries() const { return _entries; }  // up to one beyond the end of the file
  // The packets that are beyond it, at least in part; by track.
  std::vector<TrackSum> const& Beyond() const { return _beyond; }
  bool All() const { return _all; }   // there are none
  int64 End() const { return _end; }  // of the last chunk and its pad byte
  std::vector<TrackSum> const& Sums() const { return _sums; }

 private:
  bool PassEmpty(int64 limit);
  bool PointsToChunk(avi::IndexEntry const& entry);
  int64 Payload(avi::IndexEntry const& entry) const;
  void Fail(avi::IndexEntry const& entry, char const* what);

  avi::RiffReader& _file;
  Layout const& _layout;
  int64 const _step;        // between the chunks that are read
  int64 _end, _sample = 0;  // what comes next
  int64 _place = -1;        // of the next entry, -1 before the first
  base::uint64 _entries = 0;
  bool _all = true;
  std::vector<TrackSum> _sums, _beyond;  // by track
  std::deque<avi::IndexEntry> _last;
  std::string _fault;
};

}  // namespace kestro::tool
