// Reads the headers of a track.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "avi/RiffReader.h"

namespace kestro::avi {

struct AviTrack {
  std::string type;                // "video", "audio", "text", or the type code itself
  std::string handler;             // four characters
  std::string codec;               // "h264", "hevc", "mjpeg", "pcm", ..., or the codec's own code
  unsigned width = 0, height = 0;  // video
  unsigned sampleRate = 0, channels = 0, bits = 0;  // audio
  unsigned scale = 0, rate = 0, length = 0;         // from the stream header
  unsigned bytesPerSecond = 0;                      // audio
  std::string name;                                 // from strn
  Chunk streamData;                                 // strd; only valid if its id is not 0
  std::vector<unsigned char> extra;  // video: what follows the format, such as an avcC record

  base::uint64 chunks = 0, keyChunks = 0, bytes = 0;  // `bytes`: of payload
  base::uint64 indexedChunks = 0;                     // with an index entry
  base::uint64 filledChunks = 0;                      // with data
  bool keysKnown = false;                             // keyChunks counts all key frames
  int64 duration_ms = 0;

  std::string Kind() const;  // for messages: "video h264"
  // Audio: the size of one sample of each channel; 1 if the header has none.
  unsigned FrameBytes() const { return std::max(1u, channels * bits / 8); }
};

// The text in a chunk, up to a zero and at most 64 KiB.
std::string ReadText(RiffReader& reader, Chunk const& chunk);

// Read the chunks strh and strf of a track.
void ReadStreamHeader(RiffReader& reader, Chunk const& chunk, AviTrack& track);
void ReadStreamFormat(RiffReader& reader, Chunk const& chunk, AviTrack& track);

}  // namespace kestro::avi
