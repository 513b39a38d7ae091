#include "avi/VideoFormat.h"

#include <algorithm>
#include <vector>

#include "stream/NalUnits.h"

namespace kestro::avi {

void ReadAspect(BitReader& bits, VideoFormat& format) {
  static constexpr std::uint8_t kShapes[][2] = {
      {0, 0},   {1, 1},   {12, 11}, {10, 11}, {16, 11},  {40, 33}, {24, 11}, {20, 11}, {32, 11},
      {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
  constexpr unsigned kOwn = 255;
  if (bits.Bit() == 0) return;
  unsigned const shape = bits.Bits(8);
  unsigned width = 0, height = 0;
  if (shape == kOwn) {
    width = bits.Bits(16);
    height = bits.Bits(16);
  } else if (shape < std::size(kShapes)) {
    width = kShapes[shape][0];
    height = kShapes[shape][1];
  }
  if (!bits.Good() || width == 0 || height == 0) return;
  format.aspectWidth = width;
  format.aspectHeight = height;
}

void SkipColours(BitReader& bits) {
  if (bits.Bit() != 0) bits.Skip(1);
  if (bits.Bit() != 0) {
    bits.Skip(4);
    if (bits.Bit() != 0) bits.Skip(24);
  }
  if (bits.Bit() != 0) bits.SkipNumbers(2);
}

// Removes the escape bytes: 00 00 03 stands for 00 00.
static std::vector<std::uint8_t> Unescaped(std::uint8_t const* data, std::size_t size) {
  constexpr std::size_t kMost = 1 << 16;
  std::vector<std::uint8_t> plain;
  int zeros = 0;
  for (std::size_t i = 0; i < std::min(size, kMost); ++i) {
    bool const escape = zeros >= 2 && data[i] == 3;
    zeros = data[i] == 0 ? zeros + 1 : 0;
    if (!escape) plain.push_back(data[i]);
  }
  return plain;
}

static std::optional<VideoFormat> ReadSps(stream::NalCodec codec, std::uint8_t const* data,
                                          std::size_t size) {
  using namespace stream;
  bool const hevc = codec == NalCodec::kHevc;
  for (NalUnits<AllCodes> unit(codec, data, size); unit.More(); unit.Next()) {
    if (unit.Header().IsSlice()) break;
    if (unit.Header().ParameterSet() != (hevc ? 1 : 0)) continue;
    std::size_t const begin = unit.Begin() + (hevc ? 2 : 1);
    auto const sps = Unescaped(data + begin, std::max(unit.End(), begin) - begin);
    BitReader const bits(sps.data(), sps.size());
    return hevc ? ReadHevcSps(bits) : ReadH264Sps(bits);
  }
  return std::nullopt;
}

// `frame`: what follows the length in the frame header.
static VideoFormat JpegFormat(std::uint8_t marker, std::uint8_t const* frame, std::size_t size) {
  static constexpr char const* kProfiles[] = {"baseline", "extended", "progressive", "lossless"};
  VideoFormat format;
  unsigned const kind = marker & 0xF;
  format.profile = kind < 4 ? kProfiles[kind] : "SOF" + std::to_string(kind);
  format.bits = frame[0];
  format.chroma = frame[5] == 1 ? "4:0:0" : "";
  if (frame[5] != 3 || size < 15) return format;
  // The first part has this many samples for each one of the others, across and down.
  static constexpr std::pair<unsigned, char const*> kForms[] = {
      {0x11, "4:4:4"}, {0x21, "4:2:2"}, {0x22, "4:2:0"}, {0x41, "4:1:1"}, {0x12, "4:4:0"}};
  unsigned const first = frame[7], other = frame[10];
  unsigned const across = other >> 4, down = other & 0xF;
  if (other != frame[13] || across == 0 || down == 0) return format;
  for (auto const& [form, name] : kForms)
    if (first == ((form >> 4) * across << 4 | (form & 0xF) * down)) format.chroma = name;
  return format;
}

static std::optional<VideoFormat> ReadJpeg(std::uint8_t const* data, std::size_t size) {
  for (std::size_t at = 2; at + 4 <= size && data[at] == 0xFF;) {
    std::uint8_t const marker = data[at + 1];
    std::size_t const length = static_cast<std::size_t>(data[at + 2] << 8 | data[at + 3]);
    bool const frame = marker >= 0xC0 && marker <= 0xCF && marker % 4 != 0;
    if (marker == 0xFF) {  // fill byte
      ++at;
    } else if (frame || marker == 0xC0) {
      bool const whole = length >= 8 && length <= size - at - 2;
      if (!whole) return std::nullopt;
      return JpegFormat(marker, data + at + 4, length - 2);
    } else if (length < 2 || marker == 0xDA) {
      return std::nullopt;
    } else {
      at += 2 + length;
    }
  }
  return std::nullopt;
}

std::optional<VideoFormat> VideoFormat::Read(std::string const& codec, std::uint8_t const* data,
                                             std::size_t size) {
  if (codec == "mjpeg") return ReadJpeg(data, size);
  auto const known = stream::NalCodecOf(codec);
  return known ? ReadSps(*known, data, size) : std::nullopt;
}

}  // namespace kestro::avi
