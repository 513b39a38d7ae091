#include "media/libav/PictureSize.h"

#include "cli/Text.h"
#include "media/Jpeg.h"

namespace kestro::tool {

PictureSize::PictureSize(AVCodecID codec)
    : _parser(codec == AV_CODEC_ID_MJPEG ? nullptr : CodecParser::For(codec)) {}

void PictureSize::Check(SharedBytes const& key, std::int64_t time_ns) {
  constexpr std::size_t kMost = 10;
  int width = 0, height = 0;
  if (_parser) {
    _parser->ReadSize(key.data(), key.size(), width, height);
  } else {
    JpegCheck const jpeg = CheckJpeg(key.data(), key.size());
    width = jpeg.width;
    height = jpeg.height;
  }
  if (width <= 0 || height <= 0 || (width == _width && height == _height)) return;
  if (_width != 0) {
    _fresh.push_back({"the picture size changes from " + std::to_string(_width) + "x" +
                          std::to_string(_height) + " to " + std::to_string(width) + "x" +
                          std::to_string(height) + " at " + Seconds_ns(time_ns) +
                          "; the file's header names only the first",
                      "size",
                      {{"at_ms", Ms(time_ns)}, {"width", width}, {"height", height}}});
    if (_changes.size() < kMost) _changes.push_back(_fresh.back());
    _changes.back().reported = true;
  }
  _width = width;
  _height = height;
}

}  // namespace kestro::tool
