// The latest packets of a recording, in memory.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <utility>
#include <vector>

#include "base/Reference.h"
#include "stream/Packet.h"

namespace kestro::record {

// Holds the latest groups of pictures of the leading track, and the packets of the other tracks
// from the first of them on. It never holds more bytes than allowed: then the oldest groups go, and
// if a single group is too large, everything does, and the next packet of the leading track that is
// taken is a key frame.
//
// A reader goes through the packets of each track: Front is the first one that it has not passed.
// Not thread-safe.
class PacketRing {
 public:
  using PacketRef = base::Ref<stream::Packet>;
  // Called with key frames that are dropped before the reader has passed them.
  using Dropped = std::function<void(std::size_t track, stream::Packet const& key)>;

  PacketRing(std::size_t tracks, std::size_t lead, std::uint64_t maxBytes, Dropped dropped);

  // `passed`: by the reader; all earlier packets of the track must have been. False when the packet
  // is not held.
  bool Add(std::size_t track, PacketRef packet, bool passed);
  // Drops the first groups as long as the others begin at a time or earlier.
  void DropBefore(std::int64_t time_ns);

  bool Empty() const { return _groups.empty(); }  // no group
  std::int64_t Begin_ns() const { return _groups.front().begin_ns; }
  bool Lost() const { return _lost; }  // a packet of the leading track that was not passed
  // Whether a group was dropped for lack of room since the last call.
  bool Overflowed() { return std::exchange(_overflowed, false); }

  void Rewind();                                   // no packet is passed
  stream::Packet* Front(std::size_t track) const;  // null: all are passed
  std::uint64_t Order(std::size_t track) const;    // by which Front came after other packets
  void Pass(std::size_t track) { ++_tracks[track].passed; }

 private:
  // What a packet occupies besides its payload, roughly.
  static constexpr std::uint64_t kOverhead = 160;

  struct Item {
    PacketRef packet;
    std::uint64_t order, bytes;
  };
  struct Track {
    std::deque<Item> items;
    std::size_t passed = 0;  // the first so many
  };
  struct Group {
    std::uint64_t order;  // of its key frame
    std::int64_t begin_ns;
  };

  bool MakeRoom(std::size_t track, stream::Packet const& packet, std::uint64_t bytes);
  void DropGroup(std::int64_t next_ns);
  void DropFirst(std::size_t track);
  void DropAll();
  bool DropOldest();

  std::vector<Track> _tracks;
  std::size_t const _lead;
  std::uint64_t const _maxBytes;
  Dropped const _dropped;
  std::deque<Group> _groups;
  std::uint64_t _bytes = 0, _order = 0;
  bool _lost = false, _overflowed = false;
};

}  // namespace kestro::record
