// The description of one track of a recording.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "base/Fraction.h"

namespace kestro::record {

// Describes a track before recording starts. Video needs codec, size and frame rate; audio needs
// rate and channels; text takes its frame rate from the video.
struct TrackInfo {
  enum Codec {
    kH264,   // Annex B, one access unit per packet
    kHevc,   // the same
    kMjpeg,  // one JPEG picture per packet
    kPcm,    // signed integers, little-endian, interleaved
    kText,   // one text per packet
  };

  std::string name;  // used in messages, such as "clip.mp4, track 0"; empty: "track N"
  Codec codec = kH264;
  int width = 0, height = 0;  // video: frame size in pixels
  // Frames per second; must be the same for all H.264 and HEVC tracks. A file stores the nearest
  // whole rate.
  base::Fraction frameRate;
  int rate = 0, channels = 0;  // audio: sample rate and number of channels
  int bits = 16;               // audio: bits per sample
  int samples = 0;             // audio: samples per channel in a block; 0: BlockLength(rate)
  // H.264 and HEVC: parameter sets with start codes, used when the first key frame has none.
  std::string parameterSets;

  bool IsVideo() const { return codec <= kMjpeg; }
  bool IsAudio() const { return codec == kPcm; }
  bool IsText() const { return codec == kText; }
  // Readers give motion JPEG and text no track number, so these tracks come last in a file.
  bool Numbered() const { return codec != kMjpeg && !IsText(); }
  bool TakesParameterSets() const { return codec == kH264 || codec == kHevc; }
  // The block length for a sample rate: 40 ms, halved until it is at most 1024 samples. Other
  // readers split audio into packets of 1024 samples, and then see one packet per block.
  static int BlockLength(int rate) {
    int length = rate / 25;
    while (length > 1024) length /= 2;
    return length > 0 ? length : 1;
  }
  // The nearest whole rate; 0/1 for an unknown one.
  static base::Fraction StoredRate(base::Fraction const& rate) {
    if (!rate.Positive()) return {};
    return {std::max<base::int64>(1, (rate.num + rate.den / 2) / rate.den), 1};
  }
  int FrameBytes() const { return channels * bits / 8; }  // audio: one sample of each channel
};

using Tracks = std::vector<TrackInfo>;

}  // namespace kestro::record
