// Writes PCM audio to a WAV file.
#pragma once

#include <cstdint>
#include <string>

#include "media/StreamFile.h"

namespace kestro::tool {

class WaveFile : public StreamFile {
 public:
  WaveFile(std::string const& path, avi::AviTrack const& track);
  void Write(std::size_t track, avi::Piece const& piece) override;
  Written Finish() override;

 private:
  void StoreHead();

  avi::AviTrack _track;
  std::uint64_t _bytes;  // of audio; known from the start where the header cannot be rewritten
};

}  // namespace kestro::tool
