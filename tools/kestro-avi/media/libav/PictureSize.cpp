#include "media/libav/PictureSize.h"

#include "cli/Text.h"

namespace kestro::tool {

PictureSize::PictureSize(AVCodecID codec)
    : _parser(codec == AV_CODEC_ID_MJPEG ? nullptr : CodecParser::For(codec)) {}

// The size in a JPEG picture's frame header: markers SOF0 to SOF15 without DHT, JPG and DAC.
static bool ReadJpegSize(Bytes const& data, int& width, int& height) {
  for (std::size_t at = 2; at + 9 <= data.size() && data[at] == 0xFF;) {
    int const marker = data[at + 1];
    bool const frame =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      height = data[at + 5] << 8 | data[at + 6];
      width = data[at + 7] << 8 | data[at + 8];
      return true;
    }
    at += 2 + static_cast<std::size_t>(data[at + 2] << 8 | data[at + 3]);
  }
  return false;
}

void PictureSize::Check(Bytes const& key, std::int64_t time_ns) {
  constexpr std::size_t kMost = 10;
  int width = 0, height = 0;
  bool const known = _parser ? _parser->ReadSize(key.data(), key.size(), width, height)
                             : ReadJpegSize(key, width, height);
  if (!known || (width == _width && height == _height)) return;
  if (_width != 0 && _changes.size() < kMost)
    _changes.push_back("the picture size changes from " + std::to_string(_width) + "x" +
                       std::to_string(_height) + " to " + std::to_string(width) + "x" +
                       std::to_string(height) + " at " + Seconds_ns(time_ns) +
                       "; the file's header names only the first");
  _width = width;
  _height = height;
}

}  // namespace kestro::tool
