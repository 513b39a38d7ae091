// The format of coded video, as stored in the video itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "avi/BitReader.h"

namespace kestro::avi {

struct VideoFormat {
  std::string profile;           // "High", "Main 10", "progressive", or its number
  std::string level;             // "4.1", for HEVC perhaps "4.1 high tier"; empty for JPEG
  unsigned bits = 8;             // per sample
  std::string chroma = "4:2:0";  // "4:0:0" for grey
  unsigned aspectWidth = 0, aspectHeight = 0;  // of a sample; 0: not given
  bool interlaced = false;                     // H.264: fields may be coded
  // Only of H.264: the size of a picture, and by how many frames decoding is ahead of showing.
  unsigned width = 0, height = 0;
  std::optional<unsigned> reordering;  // empty if the stream does not say

  // Reads the first frame of a track: for "h264" and "hevc" the first SPS of an access unit with
  // start codes, for "mjpeg" the frame header. The data may be cut off after that.
  static std::optional<VideoFormat> Read(std::string const& codec, std::uint8_t const* data,
                                         std::size_t size);
};

// Read the content of an SPS after the header of its NAL unit, without escape bytes. Empty when it
// ends early or has values that the standard does not allow.
std::optional<VideoFormat> ReadH264Sps(BitReader bits);
std::optional<VideoFormat> ReadHevcSps(BitReader bits);

// Reads the aspect ratio of a sample from the VUI of either.
void ReadAspect(BitReader& bits, VideoFormat& format);
// Skips what follows it in both: overscan, colours and the position of chroma samples.
void SkipColours(BitReader& bits);

}  // namespace kestro::avi
