// Prepares packets as the file format requires.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "recorder/Packets.h"

namespace kestro::record {

// Cuts audio into blocks of equal length, adds parameter sets to the first key frame of a file, and
// measures how far the tracks drift apart.
class TrackFormatter {
 public:
  // Stores a packet in the current file; false on failure.
  using Store = std::function<bool(std::size_t track, stream::Packet& packet)>;

  // `tracks` and `packets` must outlive the object.
  TrackFormatter(Tracks const& tracks, Packets const& packets, Store store);

  void BeginFile(std::int64_t begin_ns);
  // False when Store fails.
  bool Write(std::size_t track, stream::Packet& packet);
  // Stores the audio that does not fill a block.
  bool EndFile();

  // How far the tracks of the current file have drifted apart.
  std::int64_t Skew_ns() const { return _skew_ns; }

 private:
  using Bytes = std::vector<std::uint8_t>;
  struct State {
    bool begun = false;          // something was written, to any file
    std::int64_t stored_ns = 0;  // current file: total duration of the packets
    std::int64_t lag_ns = 0;     // ... and how much less that is than their times
    bool fresh = true;           // no key frame was written to the current file
    Bytes rest;                  // audio that does not fill a block yet
    std::int64_t rest_ns = 0;    // its time
    Bytes sets;                  // the last parameter sets
  };

  base::Ref<stream::Packet> NewKeyPacket(std::size_t track, void const* data, std::size_t size,
                                         std::int64_t time_ns, std::int64_t duration_ns) const;
  bool WriteAudio(std::size_t track, stream::Packet& packet);
  bool WriteSilence(std::size_t track, std::int64_t duration_ns);
  bool WriteBlocks(std::size_t track, bool last);
  bool WriteVideo(std::size_t track, stream::Packet& packet);
  void UpdateSkew(State& state, stream::Packet const& packet);
  std::size_t BlockBytes(std::size_t track) const;

  Tracks const& _info;
  Packets const& _packets;
  Store const _store;
  std::vector<State> _tracks;
  std::int64_t _begin_ns = 0;  // when the current file begins
  std::int64_t _skew_ns = 0;
};

}  // namespace kestro::record
