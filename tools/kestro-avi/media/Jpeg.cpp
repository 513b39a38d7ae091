#include "media/Jpeg.h"

#include <cstring>

namespace kestro::tool {

namespace {
enum Marker : std::uint8_t {
  kEscapedFF = 0x00,
  kTem = 0x01,
  kSof = 0xC0,  // to 0xCF, except for the next three
  kDht = 0xC4,
  kJpg = 0xC8,
  kDac = 0xCC,
  kRst0 = 0xD0,
  kRst7 = 0xD7,
  kSoi = 0xD8,
  kEoi = 0xD9,
  kSos = 0xDA,
};
}  // namespace

static bool IsRestart(std::uint8_t marker) { return marker >= kRst0 && marker <= kRst7; }

static bool IsFrame(std::uint8_t marker) {
  return (marker & 0xF0) == kSof && marker != kDht && marker != kJpg && marker != kDac;
}

// The offset of the marker that ends a scan; `size` if there is none.
static std::size_t ScanEnd(std::uint8_t const* data, std::size_t at, std::size_t size) {
  while (at + 1 < size) {
    auto const* found =
        static_cast<std::uint8_t const*>(std::memchr(data + at, 0xFF, size - at - 1));
    if (found == nullptr) break;
    at = static_cast<std::size_t>(found - data);
    std::uint8_t const next = data[at + 1];
    if (next != kEscapedFF && next != 0xFF && !IsRestart(next)) return at;
    at += next == 0xFF ? 1 : 2;
  }
  return size;
}

JpegCheck CheckJpeg(std::uint8_t const* data, std::size_t size) {
  JpegCheck check;
  auto const failed = [&check](char const* fault) {
    check.fault = fault;
    return check;
  };
  if (size == 0) return failed("empty");
  if (size < 2 || data[0] != 0xFF || data[1] != kSoi) return failed("not a JPEG picture");
  std::size_t at = 2;
  while (at + 1 < size) {
    if (data[at] != 0xFF) return failed("damaged");
    std::uint8_t const marker = data[++at];
    if (marker == 0xFF) continue;  // fill byte
    ++at;
    if (marker == kEoi) return check.width > 0 && check.height > 0 ? check : failed("damaged");
    if (marker == kTem || IsRestart(marker)) continue;
    if (size - at < 2) break;
    std::size_t const length = static_cast<std::size_t>(data[at] << 8 | data[at + 1]);
    if (length < 2 || (IsFrame(marker) && length < 7)) return failed("damaged");
    if (length > size - at) break;
    if (IsFrame(marker)) {
      check.height = data[at + 3] << 8 | data[at + 4];
      check.width = data[at + 5] << 8 | data[at + 6];
    }
    at += length;
    if (marker == kSos) at = ScanEnd(data, at, size);
  }
  return failed("cut off");
}

}  // namespace kestro::tool
