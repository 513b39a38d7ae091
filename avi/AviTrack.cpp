#include "avi/AviTrack.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace kestro::avi {

using base::Convert4;

// The first bytes of a chunk; missing ones are 0.
template <std::size_t N>
struct Fields {
  std::array<unsigned char, N> bytes{};

  Fields(RiffReader& reader, Chunk const& chunk) {
    reader.Read(chunk.Payload(), bytes.data(),
                static_cast<unsigned>(std::min<int64>(N, chunk.end - chunk.Payload())));
  }
  unsigned At16(std::size_t at) const { return bytes[at] | bytes[at + 1] << 8; }
  unsigned At32(std::size_t at) const { return At16(at) | At16(at + 2) << 16; }
};

std::string AviTrack::Kind() const {
  return codec.empty() || codec == type ? type : type + " " + codec;
}

std::string ReadText(RiffReader& reader, Chunk const& chunk) {
  constexpr int64 kMost = 1 << 16;
  int64 const size = std::clamp<int64>(chunk.end - chunk.Payload(), 0, kMost);
  std::string text(static_cast<std::size_t>(size), '\0');
  text.resize(reader.Read(chunk.Payload(), text.data(), static_cast<unsigned>(size)));
  return text.substr(0, text.find('\0'));
}

void ReadStreamHeader(RiffReader& reader, Chunk const& chunk, AviTrack& track) {
  Fields<56> const fields(reader, chunk);
  unsigned const type = fields.At32(0);
  track.type = type == Convert4("vids")   ? "video"
               : type == Convert4("auds") ? "audio"
               : type == Convert4("txts") ? "text"
                                          : CodeText(type);
  track.handler = CodeText(fields.At32(4));
  track.scale = fields.At32(20);
  track.rate = fields.At32(24);
  track.length = fields.At32(32);
  if (track.type == "text") track.codec = "text";
}

static std::string VideoCodec(unsigned code) {
  static constexpr std::pair<unsigned, char const*> kNames[] = {
      {Convert4("h264"), "h264"},  {Convert4("avc1"), "h264"},  {Convert4("x264"), "h264"},
      {Convert4("davc"), "h264"},  {Convert4("hevc"), "hevc"},  {Convert4("hev1"), "hevc"},
      {Convert4("hvc1"), "hevc"},  {Convert4("h265"), "hevc"},  {Convert4("mjpg"), "mjpeg"},
      {Convert4("jpeg"), "mjpeg"}, {Convert4("xvid"), "mpeg4"}, {Convert4("fmp4"), "mpeg4"},
      {Convert4("divx"), "mpeg4"}};
  unsigned lower = code;
  for (int i = 0; i < 32; i += 8)
    if (unsigned const c = code >> i & 0xFF; c >= 'A' && c <= 'Z') lower |= 0x20u << i;
  for (auto const& [known, name] : kNames)
    if (lower == known) return name;
  return CodeText(code);
}

static std::string AudioCodec(unsigned tag) {
  switch (tag) {
    case 1:
    case 0xFFFE:
      return "pcm";
    case 3:
      return "pcm-float";
    case 6:
      return "alaw";
    case 7:
      return "mulaw";
    case 0x50:
      return "mp2";
    case 0x55:
      return "mp3";
    case 0xFF:
      return "aac";
    case 0x2000:
      return "ac3";
    default: {
      char text[16];
      std::snprintf(text, sizeof text, "0x%04x", tag);
      return text;
    }
  }
}

void ReadStreamFormat(RiffReader& reader, Chunk const& chunk, AviTrack& track) {
  Fields<40> const fields(reader, chunk);
  if (track.type == "video") {
    track.width = fields.At32(4);
    // Negative for pictures stored from top to bottom.
    track.height = static_cast<unsigned>(std::llabs(static_cast<int>(fields.At32(8))));
    track.codec = VideoCodec(fields.At32(16));
    constexpr int64 kFormat = 40, kMostExtra = 1 << 16;
    int64 const extra = std::clamp<int64>(chunk.end - chunk.Payload() - kFormat, 0, kMostExtra);
    track.extra.resize(static_cast<std::size_t>(extra));
    track.extra.resize(
        reader.Read(chunk.Payload() + kFormat, track.extra.data(), static_cast<unsigned>(extra)));
  } else if (track.type == "audio") {
    // An extensible format has the real one in its GUID.
    unsigned const tag = fields.At16(0), real = fields.At16(24);
    track.codec = AudioCodec(tag == 0xFFFE && real != 0 ? real : tag);
    track.channels = fields.At16(2);
    track.sampleRate = fields.At32(4);
    track.bytesPerSecond = fields.At32(8);
    track.bits = fields.At16(14);
  }
}

}  // namespace kestro::avi
