// The content of the soak's recordings, which follows from the number of each packet.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "support/Recording.h"

namespace kestro::soak {

// Video of 25 fps with a key frame every 2 s, and audio of 8 kHz in blocks of a frame's length:
// 1 Mbit/s.
struct Film {
  static constexpr std::uint64_t kGroup = 50;
  static constexpr std::int64_t kFrame_ns = 40000000;
  static constexpr int kRate = 8000;
  static constexpr std::size_t kBlock = kRate / 25 * 2;  // bytes of audio to a frame

  static bool IsKey(std::uint64_t number) { return number % kGroup == 0; }
  // As it is pushed. Digits cannot be taken for a start code.
  static std::string Video(std::uint64_t number) {
    std::size_t const size = IsKey(number) ? 12000 : 3900 + number * 7919 % 600;
    std::string const payload = Padded(number, size);
    return IsKey(number) ? test::KeyFrame(payload) : test::Frame(payload);
  }
  static std::string Audio(std::uint64_t number) { return Padded(number, kBlock); }

  // As it is stored.
  static std::string Stored(std::size_t track, std::uint64_t number) {
    return track == 0 ? Video(number).substr(kDelimiter) : Audio(number);
  }
  // The number of a stored packet of a track, -1 if it has none.
  static std::int64_t NumberOf(std::size_t track, std::string const& stored) {
    static std::size_t const headers[] = {test::StoredKeyFrame("").size(),
                                          test::StoredFrame("").size()};
    bool const key = stored.compare(4, 1, "\x67") == 0;
    std::size_t const at = track == 1 ? 0 : headers[key ? 0 : 1];
    if (at + kDigits > stored.size()) return -1;
    char* end = nullptr;
    std::string const digits = stored.substr(at, kDigits);
    auto const number = std::strtoll(digits.c_str(), &end, 10);
    return *end == '\0' ? number : -1;
  }

 private:
  static constexpr std::size_t kDigits = 12, kDelimiter = 6;

  static std::string Padded(std::uint64_t number, std::size_t size) {
    std::string digits = std::to_string(number);
    digits.insert(0, kDigits - digits.size(), '0');
    return digits.append(size - kDigits, static_cast<char>('A' + number % 26));
  }
};

}  // namespace kestro::soak
