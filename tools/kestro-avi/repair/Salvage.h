// What a damaged recording still holds: its packets, found by the index and from chunk to chunk.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

using base::int64;

struct Counted {
  base::uint64 packets = 0, bytes = 0;

  void operator+=(Counted const& more) {
    packets += more.packets;
    bytes += more.bytes;
  }
};

struct Hole {
  int64 offset, size;
};

// A packet of which some bytes are gone.
struct Loss {
  unsigned id;
  int64 offset;  // of its header
  base::uint64 bytes;
};

struct SalvageCounts {
  std::vector<Counted> kept, lost;  // by track
  std::vector<Loss> losses;         // the first of those that are lost
  Counted unknown;                  // data of tracks that have no stream header
  base::uint64 indexed = 0;         // packets kept that the index names,
  base::uint64 found = 0;           // ... and those without an entry
  base::uint64 misled = 0;          // entries that lead to no chunk
  base::uint64 corrected = 0;       // key flags that the data contradicts
  base::uint64 empty = 0;           // video packets without data that the index names
  Counted trimmed;                  // packets whose front the muxer does not store
  std::vector<Hole> holes;          // bytes that are no chunk: the first of them,
  Counted skipped;                  // ... and all
};

// One pass over the data, in file order:
//
//   Salvage salvage(file, begin, tracks, sink);
//   for (...) salvage.Entry(entry);   // of an index, where there is one
//   salvage.Rest();
class Salvage {
 public:
  // Takes a whole packet; what it leaves in `data` is memory for the next one. False ends the pass.
  using Sink = std::function<bool(std::size_t track, std::vector<std::uint8_t>& data, bool key)>;
  // `begin`: where the first chunk stands. `file` and `tracks` outlive the object.
  Salvage(avi::RiffReader& file, int64 begin, std::vector<avi::AviTrack> const& tracks, Sink sink);

  // Entries that lead to no chunk are passed over, and so are those of chunks that were met.
  void Entry(avi::IndexEntry const& entry);
  void Rest();
  int64 Position() const { return _position; }  // everything in front is settled
  SalvageCounts const& Counts() const { return _counts; }

  // Whether an entry leads to a chunk of a track that has a stream header.
  static bool Leads(avi::RiffReader& file, std::vector<avi::AviTrack> const& tracks,
                    avi::IndexEntry const& entry, avi::Chunk& chunk);

 private:
  static constexpr int64 kMaxPacket = 256 << 20;  // nothing larger is a packet
  static constexpr int64 kSector = 512;           // media lose whole ones

  enum class Sight { kData, kCut, kList, kOther, kNothing };

  Sight Look(int64 at, int64 limit, avi::Chunk& chunk);
  static bool Known(std::vector<avi::AviTrack> const& tracks, unsigned id);
  bool Known(unsigned id) const { return Known(_tracks, id); }
  bool Follows(int64 at, int64 limit);
  int64 End(avi::IndexEntry const& entry) const;
  bool Adjoins(avi::IndexEntry const& entry) const;
  bool Headless(avi::IndexEntry const& entry, avi::Chunk& chunk);
  void Settle(avi::IndexEntry const* next);
  bool Torn(avi::Chunk const& chunk, avi::IndexEntry const* next);
  void Scan(int64 limit);
  bool BeginsIndex(int64 at);
  void Skip(int64 limit, avi::Chunk const* cut);
  int64 Find(int64 from, int64 limit);
  void Take(avi::Chunk const& chunk, avi::IndexEntry const* entry, bool torn = false);
  bool Whole(avi::Chunk const& chunk);
  void Trim(avi::AviTrack const& track, bool indexed);
  bool IsKey(std::size_t track, avi::IndexEntry const* entry);
  void Lose(unsigned id, int64 offset, int64 bytes);
  void LoseMissing(int64 begin, int64 end);

  avi::RiffReader& _file;
  std::vector<avi::AviTrack> const& _tracks;
  Sink _sink;
  int64 _position;                          // everything in front is settled
  std::optional<avi::IndexEntry> _waiting;  // an entry that waits for the next one
  int64 _told = 0;                          // where the entries that lead nowhere end, one by one
  std::multimap<int64, avi::IndexEntry> _missing;  // entries that lead nowhere, by where they lead
  std::vector<bool> _openKeys;  // by track: the index takes open starts for key frames
  std::vector<std::uint8_t> _data;
  bool _indexSeen = false;  // an index stood in the way: the data may end anywhere
  bool _stopped = false;
  SalvageCounts _counts;
};

}  // namespace kestro::tool
