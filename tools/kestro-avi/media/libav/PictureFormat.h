// Notices when the format of a video track changes.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Fraction.h"
#include "media/SharedBytes.h"
#include "media/libav/CodecParser.h"

namespace kestro::tool {

struct PictureFormat {
  int width = 0, height = 0;
  int profile = FF_PROFILE_UNKNOWN;
  base::Fraction rate;  // from the parameter sets; 0/1: not read, or unknown

  std::string Text(AVCodecID codec) const;  // "1280x720, High, 25 fps"
};

// Takes the key frames of a track in Annex B form, or JPEG pictures.
class FormatWatch {
 public:
  // `rates`: whether frame rates count.
  FormatWatch(AVCodecID codec, bool rates);

  // Returns whether the key frame needs another track than the ones before: it has another size,
  // profile or frame rate. Then Before and After differ.
  bool Differs(SharedBytes const& key);
  // The same for a rate that was measured.
  void SetRates(base::Fraction const& before, base::Fraction const& after) {
    _before.rate = before;
    _after.rate = after;
  }
  PictureFormat const& Before() const { return _before; }
  PictureFormat const& After() const { return _after; }

 private:
  PictureFormat Read(SharedBytes const& key);
  base::Fraction ReadRate(SharedBytes const& key) const;

  AVCodecID const _codec;
  bool const _rates;
  std::unique_ptr<CodecParser> _parser;  // null for motion JPEG
  SharedBytes _key;                      // a key frame
  Bytes _sets;                           // its parameter sets
  PictureFormat _before, _after;
};

}  // namespace kestro::tool
