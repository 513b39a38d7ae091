// The content of the rig's recordings, which follows from the number of each packet.
#pragma once

#include "crash/Scenario.h"
#include "support/Recording.h"

namespace kestro::rig {

using base::int64;

// Video of 25 fps and audio of 16 kHz, a packet of each in turn.
struct Film {
  static constexpr int kMs = 40, kGroup = 25;  // of a packet; frames from key frame to key frame
  static constexpr int kAudioRate = 16000, kSamples = kAudioRate * kMs / 1000;

  int scale = 1;  // of the frames' size: at 1, about 2 Mbit/s

  struct Packet {
    unsigned track;
    bool key;
    int64 ms;
    std::string data, delivered;  // as it is recorded and as it is played
  };
  Packet At(int number) const;

  // What the file that begins and ends with these packets should play.
  crash::Recorded Expected(int begin, int end) const;

 private:
  static std::string Payload(unsigned seed, std::size_t size);
};

// Bytes that no start code is made of, and that are not the same twice.
inline std::string Film::Payload(unsigned seed, std::size_t size) {
  std::string bytes(size, '\0');
  unsigned word = seed * 2654435761u;
  for (char& c : bytes) {
    word = word * 1664525 + 1013904223;
    c = static_cast<char>(word >> 24 | 1);
  }
  return bytes;
}

inline Film::Packet Film::At(int number) const {
  int const turn = number / 2;
  auto const seed = static_cast<unsigned>(number);
  if (number % 2 != 0) {
    std::string const audio = Payload(seed, kSamples * 2);
    return {1, true, turn * kMs, audio, audio};
  }
  bool const key = turn % kGroup == 0;
  std::size_t const base = (key ? 40000u : 6000u) * static_cast<unsigned>(scale);
  std::string const payload = Payload(seed, base + seed * 7919 % (base / 2));
  if (!key) return {0, key, turn * kMs, test::Frame(payload), test::StoredFrame(payload)};
  std::string delivered = test::StoredKeyFrame(payload);  // its parameter sets are delivered blank
  std::fill(delivered.begin(), delivered.end() - static_cast<std::ptrdiff_t>(payload.size() + 5),
            '\0');
  return {0, key, turn * kMs, test::KeyFrame(payload), delivered};
}

inline crash::Recorded Film::Expected(int begin, int end) const {
  crash::Recorded recorded{};
  recorded.tracks.resize(2);
  for (int number = begin; number < end; ++number) {
    Packet packet = At(number);
    recorded.tracks[packet.track].push_back(
        {number, packet.ms - begin / 2 * kMs, packet.key, std::move(packet.delivered)});
  }
  return recorded;
}

// A sector that a recorder writes, to a place that no file system uses, when a sync has returned.
struct Promise {
  static constexpr int64 kSector = 512;

  int packets = 0;  // so many are safe
  int scale = 1;    // of the film
  int perFile = 0;  // packets, 0: all are in one file
  int closed = 0;   // the file that ends with them is complete

  std::string Sector() const {
    std::string text(kSector, '\0');
    std::snprintf(text.data(), text.size(), "kestro promise %d %d %d %d\n", packets, scale, perFile,
                  closed);
    return text;
  }
  static bool Read(char const* sector, Promise& promise) {
    return std::sscanf(sector, "kestro promise %d %d %d %d", &promise.packets, &promise.scale,
                       &promise.perFile, &promise.closed) == 4;
  }
};

}  // namespace kestro::rig
