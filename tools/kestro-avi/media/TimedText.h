// Texts with their times, and SRT files of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "avi/AviTrack.h"

namespace kestro::tool {

struct TimedText {
  std::int64_t start_ms = 0, end_ms = 0;
  std::string text;
};

// A text whose end is unknown is shown until the next one, but not for longer than this.
inline constexpr std::int64_t kLongestCue_ms = 2000;

// When a plain text begins: with the frame that it precedes, in the track that gives it its times.
// Rounded down, so that no earlier frame begins at or after this time.
std::int64_t TextTime_ms(avi::AviTrack const& clock, std::uint64_t frame);

// One entry of an SRT file, without the empty line after it. Numbers count from 1.
std::string SrtCue(unsigned number, TimedText const& text);

// A packet that holds a whole SRT file, in the form that other players read ("GAB2").
std::string WrapSrt(std::vector<TimedText> const& texts);
// The texts of such a packet; empty for any other one.
std::vector<TimedText> UnwrapSrt(std::uint8_t const* data, std::size_t size);

}  // namespace kestro::tool
