// The packets that the benchmarks use: a camera with audio, in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "stream/Packet.h"

namespace kestro::bench {

// Fast pseudo-random numbers, the same in each run: splitmix64.
class Random {
 public:
  std::uint64_t operator()() {
    std::uint64_t z = _state += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }

 private:
  std::uint64_t _state = 1;
};

// Video of 30 frames per second with a key frame every second, and 16-bit stereo audio at 48 kHz in
// packets of 1024 samples, in time order. A video packet is one H.264 access unit: a delimiter,
// for key frames the parameter sets, and one slice of random bytes without a start code.
class Mix {
 public:
  static constexpr int kFps = 30, kRate = 48000, kSamples = 1024;

  // Packet sizes in bytes; by default those of a 1080p recording.
  struct Sizes {
    int frame = 34 << 10, key = 150 << 10, audio = 4 << 10;
  };
  // A packet without a time. Restore its offset after changing it.
  struct Unit {
    base::Ref<stream::Packet> packet;
    bool video;

    unsigned char* Data() const { return packet->Data(); }
    int Size() const { return packet->Size(); }
  };

  // Plans packets of at least this total size.
  Mix(std::size_t bytes, Sizes sizes);
  Mix(Mix const&) = delete;
  Mix& operator=(Mix const&) = delete;

  // Created by the first call, which is slow: call it before starting the stopwatch.
  std::vector<Unit> const& Units() const;
  std::size_t Count() const { return _plan.size(); }
  std::size_t Bytes() const { return _bytes; }
  // The bytes of this many packets.
  std::int64_t Bytes(std::int64_t packets) const;
  stream::IMedia* Video() const { return _video.get(); }
  stream::IMedia* Audio() const { return _audio.get(); }

  // Calls take(unit, index, number) for this many packets, starting again at the first unit after
  // the last one. `index`: of the unit; `number`: of the packet in its track.
  template <class Take>
  void Play(std::int64_t packets, Take take) const {
    std::int64_t next[2] = {};
    auto const& units = Units();
    while (packets > 0)
      for (std::size_t i = 0; i < units.size() && packets > 0; ++i, --packets)
        take(units[i], i, next[units[i].video]++);
  }

 private:
  struct Plan {
    bool video, key;
    int size;
  };
  static void PlanRound(Sizes sizes, std::vector<Plan>& plan);
  Unit MakeUnit(Plan const& plan, unsigned char* data) const;

  std::size_t _bytes;
  std::vector<Plan> _plan;
  base::Ref<stream::IMedia> _video, _audio;
  mutable std::vector<unsigned char> _memory;
  mutable std::vector<Unit> _units;
};

}  // namespace kestro::bench
