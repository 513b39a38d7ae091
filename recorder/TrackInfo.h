// One track of a recording.
#pragma once

#include <string>
#include <vector>

#include "base/Fraction.h"

namespace kestro::record {

// What an application says about a track before recording. Video needs codec, size and frame rate;
// audio needs rate and channels; text takes its frame rate from the video.
struct TrackInfo {
  enum Codec {
    kH264,   // Annex B, an access unit a packet
    kHevc,   // the same
    kMjpeg,  // a JPEG picture a packet
    kPcm,    // signed integers, little-endian, interleaved
    kText,   // a text a packet
  };

  std::string name;  // for messages, such as "clip.mp4, track 0"; "track N" unless it is set
  Codec codec = kH264;
  int width = 0, height = 0;   // video: pixels of the frame
  base::Fraction frameRate;    // frames a second; all H.264 and HEVC tracks have the same
  int rate = 0, channels = 0;  // audio: samples a second and channel
  int bits = 16;               // audio: of a sample
  int samples = 0;             // audio: of a block and channel; 0: BlockLength(rate)
  // H.264 and HEVC: parameter sets with start codes, for a first key frame that comes without.
  std::string parameterSets;

  bool IsVideo() const { return codec <= kMjpeg; }
  bool IsAudio() const { return codec == kPcm; }
  bool IsText() const { return codec == kText; }
  // Readers give motion JPEG and text no track number, so in a file these come after all others.
  bool Numbered() const { return codec != kMjpeg && !IsText(); }
  bool TakesParameterSets() const { return codec == kH264 || codec == kHevc; }
  // 40 ms, or the half of it and so on until other readers, which split audio into packets of 1024
  // samples, see one packet a block.
  static int BlockLength(int rate) {
    int length = rate / 25;
    while (length > 1024) length /= 2;
    return length > 0 ? length : 1;
  }
  int FrameBytes() const { return channels * bits / 8; }  // audio: a sample of each channel
};

using Tracks = std::vector<TrackInfo>;

}  // namespace kestro::record
