// Finds the packets in a damaged recording, by its index and by searching the data.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "verify/FrameConverter.h"

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

// A packet that lost some of its bytes.
struct Loss {
  unsigned id;
  int64 offset;  // of its header
  base::uint64 bytes;
};

struct SalvageCounts {
  std::vector<Counted> kept, lost;  // by track
  std::vector<Loss> losses;         // the first lost packets
  Counted unknown;                  // data of tracks without a stream header
  base::uint64 indexed = 0;         // kept packets with an index entry,
  base::uint64 found = 0;           // and without one
  base::uint64 misled = 0;          // entries that do not point to a chunk
  base::uint64 corrected = 0;       // key flags that contradict the data
  base::uint64 empty = 0;           // empty video packets with an index entry
  Counted trimmed;                  // packets whose first bytes the muxer does not store
  std::vector<Hole> holes;          // bytes that are not part of a chunk: the first ones,
  Counted skipped;                  // and all
};

// One pass over the data, in file order:
//
//   Salvage salvage(file, begin, tracks, sink);
//   for (...) salvage.AddEntry(entry);   // for each index entry, if there is an index
//   salvage.Finish();
class Salvage {
 public:
  struct Packet {
    std::size_t track;
    std::vector<std::uint8_t> const& data;
    bool key;
    avi::Chunk const& chunk;  // that it was stored in
  };
  // Called for each complete packet; false ends the pass.
  using Sink = std::function<bool(Packet const&)>;
  // `begin`: offset of the first chunk. `file` and `tracks` must outlive the object.
  Salvage(avi::RiffReader& file, int64 begin, std::vector<avi::AviTrack> const& tracks, Sink sink);

  // Treats larger chunks as damage, so that no more memory than this is needed.
  void Limit(int64 largest);
  // Ignores entries that do not point to a chunk, or to one that was already read.
  void AddEntry(avi::IndexEntry const& entry);
  void Finish();
  int64 Position() const { return _position; }  // everything before it is done
  SalvageCounts const& Counts() const { return _counts; }

  // Whether an entry points to a chunk of a track that has a stream header.
  static bool PointsToChunk(avi::RiffReader& file, std::vector<avi::AviTrack> const& tracks,
                            avi::IndexEntry const& entry, avi::Chunk& chunk);
  // Whether the id is that of a data chunk of one of the tracks.
  static bool IsTrackData(std::vector<avi::AviTrack> const& tracks, unsigned id);

 private:
  static constexpr int64 kMaxPacket = 256 << 20;  // larger chunks are damage
  static constexpr int64 kSector = 512;           // storage devices lose whole sectors

  enum class ChunkKind { kData, kCut, kList, kOther, kNone };

  ChunkKind ReadChunk(int64 at, int64 limit, avi::Chunk& chunk);
  bool IsTrackData(unsigned id) const { return IsTrackData(_tracks, id); }
  bool IsChunk(int64 at, int64 limit);
  int64 ChunkEnd(avi::IndexEntry const& entry) const;
  bool IsAdjacent(avi::IndexEntry const& entry) const;
  bool LostOnlyHeader(avi::IndexEntry const& entry, avi::Chunk& chunk);
  void ProcessWaiting(avi::IndexEntry const* next);
  bool EndsInGarbage(avi::Chunk const& chunk, avi::IndexEntry const* next);
  void Scan(int64 limit);
  bool StartsIndex(int64 at);
  void Skip(int64 limit, avi::Chunk const* cut);
  int64 FindPacket(int64 from, int64 limit);
  void KeepPacket(avi::Chunk const& chunk, avi::IndexEntry const* entry, bool damaged = false);
  bool IsIntact(avi::Chunk const& chunk);
  bool Convert(std::size_t track);
  void Trim(avi::AviTrack const& track, bool indexed);
  bool IsKey(std::size_t track, avi::IndexEntry const* entry);
  void AddLoss(unsigned id, int64 offset, int64 bytes);
  void LoseMissing(int64 begin, int64 end);

  avi::RiffReader& _file;
  std::vector<avi::AviTrack> const& _tracks;
  Sink _sink;
  int64 _position;                                 // everything before it is done
  std::optional<avi::IndexEntry> _waiting;         // the last entry, until the next one is known
  int64 _missingEnd = 0;                           // end of the chunk of the last missing entry
  std::multimap<int64, avi::IndexEntry> _missing;  // entries that point to no chunk, by offset
  int64 _largest = kMaxPacket;                     // larger chunks are damage
  std::vector<bool> _openKeys;              // by track: the index marks open starts as key frames
  std::vector<FrameConverter> _converters;  // by track
  Bytes _data, _converted;
  bool _indexSeen = false;  // an index was found in the data: the data may end anywhere
  bool _stopped = false;
  SalvageCounts _counts;
};

}  // namespace kestro::tool
