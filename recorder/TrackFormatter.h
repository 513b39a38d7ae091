// Prepares packets as the file format requires.
#pragma once

#include <algorithm>
#include <array>
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
  // Some packets are left out before the next file.
  void Suspend();
  // Takes the parameter sets of a key frame that is not written.
  void TakeParameterSets(std::size_t track, stream::Packet const& key);
  // False when Store fails.
  bool Write(std::size_t track, stream::Packet& packet);
  // Stores the audio that does not fill a block.
  bool EndFile();

  // How far the tracks of the current file have drifted apart.
  std::int64_t Skew_ns() const { return _skew_ns; }
  // Where in the current file they were furthest apart.
  struct Skew {
    std::int64_t length_ns = 0, time_ns = 0;
  };
  Skew Worst() const { return _worst; }

 private:
  using Bytes = std::vector<std::uint8_t>;
  // The last values of a sequence.
  template <std::size_t size>
  struct Window {
    std::array<std::int64_t, size> values;
    std::size_t added = 0;

    void Add(std::int64_t value) { values[added++ % size] = value; }
    auto End() const { return values.begin() + std::min(added, size); }
    std::int64_t Least() const { return *std::min_element(values.begin(), End()); }
    std::int64_t Most() const { return *std::max_element(values.begin(), End()); }
  };
  struct State {
    bool begun = false;          // something was written, to any file
    std::int64_t stored_ns = 0;  // current file: total duration of the packets
    Window<8> times;    // of the packets; the latest counts, because frames may be reordered
    Window<10> lags;    // how much less is stored then; the least counts, as packets may be late
    bool fresh = true;  // no key frame was written to the current file
    Bytes rest;         // audio that does not fill a block yet
    std::int64_t rest_ns = 0;  // its time
    Bytes sets;                // the last parameter sets
  };

  base::Ref<stream::Packet> NewKeyPacket(std::size_t track, void const* data, std::size_t size,
                                         std::int64_t time_ns, std::int64_t duration_ns) const;
  bool WriteAudio(std::size_t track, stream::Packet& packet);
  bool WriteSilence(std::size_t track, std::int64_t duration_ns);
  bool WriteBlocks(std::size_t track, bool last);
  bool WriteVideo(std::size_t track, stream::Packet& packet);
  bool NoteParameterSets(std::size_t track, stream::Packet const& key);
  void UpdateSkew(State& state, stream::Packet const& packet);
  std::size_t BlockBytes(std::size_t track) const;

  Tracks const& _info;
  Packets const& _packets;
  Store const _store;
  std::vector<State> _tracks;
  std::int64_t _begin_ns = 0;  // when the current file begins
  std::int64_t _skew_ns = 0;
  Skew _worst;
};

}  // namespace kestro::record
