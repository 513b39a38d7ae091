// Converts frames that other muxers store without start codes.
#pragma once

#include <optional>

#include "avi/Index.h"
#include "media/AnnexB.h"
#include "verify/KeyFrame.h"

namespace kestro::tool {

// Converts the frames of one track, in file order, from length-prefixed to Annex B form.
class FrameConverter {
 public:
  explicit FrameConverter(avi::AviTrack const& track);

  // Whether the track is length-prefixed H.264 or HEVC; the other functions are for such tracks.
  bool Needed() const { return _converter && _converter->Prefixed(); }
  // Whether some of the parameter sets in the track's header could not be read.
  bool SetsDamaged() const { return _setsDamaged; }

  // Adds the header's parameter sets to key frames and to the first frame. Returns false for a
  // damaged frame; `out` then has the intact part.
  bool Convert(unsigned char const* data, std::size_t size, Bytes& out);

  // The kind of a frame in a file, of any track. Empty if the frame is damaged.
  std::optional<Picture> KindOf(avi::RiffReader& reader, avi::IndexEntry const& entry);

 private:
  std::string const _codec;
  std::optional<AnnexB> _converter;  // none for other codecs
  bool _setsDamaged = false;
  bool _begun = false;  // a frame was converted
  Bytes _read, _frame;  // for KindOf
};

}  // namespace kestro::tool
