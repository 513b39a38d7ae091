// Which frame rate a recording has.
#pragma once

#include <cstdint>
#include <string>

#include "base/Fraction.h"

namespace kestro::tool {

inline constexpr int kHighestRate = 1000;  // frames per second

// What is known about a track's rate; 0/1 for nothing.
struct RateSources {
  base::Fraction option;     // --fps
  base::Fraction container;  // told by the container
  base::Fraction stream;     // told by the parameter sets; used for elementary streams only
};

// The rate to record with. Throws Error for one that is unknown or not between 1 and 1000; `track`
// names the track in the message.
base::Fraction ChooseRate(RateSources const& sources, std::string const& track);

// A rate as containers write it: one very near a whole number is that number.
base::Fraction NearWhole(base::Fraction const& rate);

// What to say of a rate that a file holds the whole part of; empty for a whole one.
std::string SpeedNote(std::string const& track, base::Fraction const& rate);

bool SameRate(base::Fraction const& a, base::Fraction const& b);
// What to say of a track of H.264 or HEVC that has another rate than one before it.
std::string RatesDiffer(std::string const& track, base::Fraction const& rate,
                        base::Fraction const& other);

// A rate on the command line: "25", "30000/1001", "29.97". Throws Error.
base::Fraction ParseRate(std::string const& text);

// When a frame of a constant rate is due.
std::int64_t FrameTime_ns(base::Fraction rate, std::int64_t frame);

}  // namespace kestro::tool
