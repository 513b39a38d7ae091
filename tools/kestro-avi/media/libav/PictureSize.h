// Notices when the picture size of a video track changes.
#pragma once

#include <memory>
#include <utility>

#include "cli/Notice.h"
#include "media/SharedBytes.h"
#include "media/libav/CodecParser.h"

namespace kestro::tool {

class PictureSize {
 public:
  explicit PictureSize(AVCodecID codec);

  void Check(SharedBytes const& key, std::int64_t time_ns);  // a key frame

  // One line for each of the first changes.
  Notices const& Changes() const { return _changes; }
  // The changes since the last call.
  Notices Take() { return std::exchange(_fresh, {}); }

 private:
  std::unique_ptr<CodecParser> _parser;  // null for motion JPEG
  int _width = 0, _height = 0;
  Notices _changes, _fresh;
};

}  // namespace kestro::tool
