// Chooses the frame rate of a recording.
#pragma once

#include <cstdint>
#include <string>

#include "base/Fraction.h"

namespace kestro::tool {

inline constexpr int kHighestRate = 1000;  // frames per second

// The frame rates from all sources; 0/1 for unknown.
struct RateSources {
  base::Fraction option;     // --fps
  base::Fraction container;  // from the container
  base::Fraction stream;     // from the parameter sets; used only for elementary streams
};

// The rate to record with. Throws Error for a rate that is unknown or not between 1 and 1000;
// `track` is used in the message.
base::Fraction ChooseRate(RateSources const& sources, std::string const& track);

// Corrects a rate that is very close to a whole number, or to one divided by 1.001: containers
// store rates inexactly.
base::Fraction UsualRate(base::Fraction const& rate);

// A file stores whole rates: the nearest one.
base::Fraction StoredRate(base::Fraction const& rate);
// How fast a track plays in a file: the rate divided into the stored one, 1/1 for a whole rate.
base::Fraction PlayedSpeed(base::Fraction const& rate);
// Whether audio can be stretched to this speed unnoticed: by up to 0.5 %.
bool Stretchable(base::Fraction const& speed);

// "30000/1001", or "29.9837" for a rate that is no usual fraction.
std::string RateText(base::Fraction const& rate);
// "30000/1001 fps is stored as 30 fps"; empty for a whole rate.
std::string StoredRateText(base::Fraction const& rate);
// How far pictures that play at this speed drift away from what does not: "pictures play 4 % faster
// than audio, ...".
std::string DriftText(base::Fraction const& speed, char const* than = "audio");

bool SameRate(base::Fraction const& a, base::Fraction const& b);
// The message about an H.264 or HEVC track that has another rate than an earlier one.
std::string RatesDiffer(std::string const& track, base::Fraction const& rate,
                        base::Fraction const& other);

// Parses a rate from the command line: "25", "30000/1001", or "29.97", which means the same as the
// one before. Throws Error.
base::Fraction ParseRate(std::string const& text);

// The time of a frame at a constant rate.
std::int64_t FrameTime_ns(base::Fraction rate, std::int64_t frame);

}  // namespace kestro::tool
