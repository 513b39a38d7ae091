// Writes tracks to a container of libavformat without changing them.
#pragma once

#include <string>
#include <vector>

#include "cli/NewFile.h"
#include "media/Media.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// The libavcodec id of a track's codec; AV_CODEC_ID_NONE if the track cannot be extracted.
AVCodecID CodecOf(avi::AviTrack const& track);

class ContainerFile : public Output {
 public:
  // Whether a file name has the extension of a container.
  static bool IsContainer(std::string const& path);

  ContainerFile(std::string const& path, std::vector<ContainerTrack> const& tracks);
  ~ContainerFile() override;
  void Write(std::size_t track, avi::Piece const& piece) override;
  Written Finish() override;

 private:
  void AddTrack(ContainerTrack const& from);
  void SetParameters(AVStream& stream, ContainerTrack const& from);
  // Throws Error if the result is negative.
  void Require(int result) const;

  struct ContextDelete {
    void operator()(AVFormatContext* p) const { avformat_free_context(p); }
  };
  NewFile _new;
  std::unique_ptr<AVFormatContext, ContextDelete> _format;
  std::vector<ContainerTrack> _tracks;
  std::vector<AVRational> _units;  // time base of a piece's position, by track
};

}  // namespace kestro::tool
