// Tracks in a container of libavformat, as they are.
#pragma once

#include <string>
#include <vector>

#include "cli/NewFile.h"
#include "media/Media.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// The codec of a track as libavcodec names it; AV_CODEC_ID_NONE when it cannot be extracted.
AVCodecID CodecOf(avi::AviTrack const& track);

class ContainerFile : public Output {
 public:
  // Whether a file's ending names a container.
  static bool Known(std::string const& path);

  ContainerFile(std::string const& path, std::vector<ContainerTrack> const& tracks);
  ~ContainerFile() override;
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Finish() override;

 private:
  void AddTrack(ContainerTrack const& from);
  void Describe(AVStream& stream, ContainerTrack const& from);
  // Throws Error unless all is well.
  void Must(int result, std::string const& what = "") const;

  struct ContextDelete {
    void operator()(AVFormatContext* p) const { avformat_free_context(p); }
  };
  NewFile _new;
  std::unique_ptr<AVFormatContext, ContextDelete> _format;
  std::vector<ContainerTrack> _tracks;
  std::vector<AVRational> _units;  // what a piece's position counts, by track
};

}  // namespace kestro::tool
