// Notices when the picture size of a video track changes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/libav/CodecParser.h"

namespace kestro::tool {

class PictureSize {
 public:
  explicit PictureSize(AVCodecID codec);

  void Check(Bytes const& key, std::int64_t time_ns);  // a key frame

  // One line for each change.
  std::vector<std::string> const& Changes() const { return _changes; }

 private:
  std::unique_ptr<CodecParser> _parser;  // null for motion JPEG
  int _width = 0, _height = 0;
  std::vector<std::string> _changes;
};

}  // namespace kestro::tool
