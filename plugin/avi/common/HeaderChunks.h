// The header chunks with fixed fields. Each lists its fields once, in file order, for reading and
// writing. The names are those of the AVI headers.
#pragma once

#include <array>
#include <tuple>

#include "common/IList.h"

namespace kestro::plugin::avi {

// A chunk of little-endian fields, 32-bit (unsigned) or 16-bit (unsigned short) as declared.
template <class Chunk>
class FieldChunk : public IList {
 public:
  using IList::IList;

  void fill(IO& io) override {
    IList::fill(io);
    base::IOIntWriter writer(io);
    ForEach([&](auto& field) {
      if constexpr (sizeof field == 4)
        writer.Write32(field);
      else
        writer.Write16(field);
    });
  }

  // A short read leaves the fields after it as they are.
  void parse(IO& io) override {
    base::IOIntReader reader(io);
    ForEach([&](auto& field) {
      if constexpr (sizeof field == 4)
        reader.Read32(field);
      else
        reader.Read16(field);
    });
  }

 private:
  template <class Visit>
  void ForEach(Visit visit) {
    auto* self = static_cast<Chunk*>(this);
    std::apply([&](auto... member) { (visit(self->*member), ...); }, Chunk::Fields());
  }
};

// The main header: 56 bytes.
struct cavih : FieldChunk<cavih> {
  cavih() : FieldChunk("avih") {}

  unsigned dwMicroSecPerFrame = 0;
  unsigned dwMaxBytesPerSec = 0;
  unsigned dwPaddingGranularity = 0;
  unsigned dwFlags = 0;
  unsigned dwTotalFrames = 0;
  unsigned dwInitialFrames = 0;
  unsigned dwStreams = 0;
  unsigned dwSuggestedBufferSize = 0;
  unsigned dwWidth = 0;
  unsigned dwHeight = 0;
  unsigned dwReserved0 = 0, dwReserved1 = 0, dwReserved2 = 0, dwReserved3 = 0;

  static constexpr auto Fields() {
    return std::make_tuple(
        &cavih::dwMicroSecPerFrame, &cavih::dwMaxBytesPerSec, &cavih::dwPaddingGranularity,
        &cavih::dwFlags, &cavih::dwTotalFrames, &cavih::dwInitialFrames, &cavih::dwStreams,
        &cavih::dwSuggestedBufferSize, &cavih::dwWidth, &cavih::dwHeight, &cavih::dwReserved0,
        &cavih::dwReserved1, &cavih::dwReserved2, &cavih::dwReserved3);
  }
};

// A stream's header: 56 bytes.
struct cstrh : FieldChunk<cstrh> {
  cstrh() : FieldChunk("strh") {}

  unsigned fccType = 0;  // "vids", "auds" or "txts"
  unsigned fccHandler = 0;
  unsigned dwFlags = 0;
  unsigned dwPriorityLanguage = 0;  // 16 bits each
  unsigned dwInitialFrames = 0;
  unsigned dwScale = 0;
  unsigned dwRate = 0;  // rate / scale = units a second
  unsigned dwStart = 0;
  unsigned dwLength = 0;  // in units
  unsigned dwSuggestedBufferSize = 0;
  unsigned dwQuality = 10000;
  unsigned dwSampleSize = 0;
  unsigned rcFrameLeftTop = 0;  // 16 bits each
  unsigned short rcFrameRight = 0;
  unsigned short rcFrameBottom = 0;

  static constexpr auto Fields() {
    return std::make_tuple(&cstrh::fccType, &cstrh::fccHandler, &cstrh::dwFlags,
                           &cstrh::dwPriorityLanguage, &cstrh::dwInitialFrames, &cstrh::dwScale,
                           &cstrh::dwRate, &cstrh::dwStart, &cstrh::dwLength,
                           &cstrh::dwSuggestedBufferSize, &cstrh::dwQuality, &cstrh::dwSampleSize,
                           &cstrh::rcFrameLeftTop, &cstrh::rcFrameRight, &cstrh::rcFrameBottom);
  }
};

// A video format, a bitmap information header: 40 bytes.
struct cvstrf : FieldChunk<cvstrf> {
  cvstrf() : FieldChunk("strf") {}

  unsigned biSize = 40;
  unsigned biWidth = 0;
  unsigned biHeight = 0;
  unsigned short biPlanes = 1;
  unsigned short biBitCount = 24;
  unsigned biCompression = 0;
  unsigned biSizeImage = 0;
  unsigned biXPelsPerMeter = 0;
  unsigned biYPelsPerMeter = 0;
  unsigned biClrUsed = 0;
  unsigned biClrImportant = 0;

  static constexpr auto Fields() {
    return std::make_tuple(&cvstrf::biSize, &cvstrf::biWidth, &cvstrf::biHeight, &cvstrf::biPlanes,
                           &cvstrf::biBitCount, &cvstrf::biCompression, &cvstrf::biSizeImage,
                           &cvstrf::biXPelsPerMeter, &cvstrf::biYPelsPerMeter, &cvstrf::biClrUsed,
                           &cvstrf::biClrImportant);
  }
};

// An audio format, a wave format header without an extension size: 16 bytes.
struct castrf : FieldChunk<castrf> {
  castrf() : FieldChunk("strf") {}

  unsigned short wFormatTag = 0;
  unsigned short nChannels = 0;
  unsigned nSamplesPerSec = 0;
  unsigned nAvgBytesPerSec = 0;
  unsigned short nBlockAlign = 0;
  unsigned short wBitsPerSample = 0;

  static constexpr auto Fields() {
    return std::make_tuple(&castrf::wFormatTag, &castrf::nChannels, &castrf::nSamplesPerSec,
                           &castrf::nAvgBytesPerSec, &castrf::nBlockAlign, &castrf::wBitsPerSample);
  }
};

// A text format: 64 opaque bytes. Parsing never makes one.
struct ctstrf : IList {
  ctstrf() : IList("strf") {}
  void fill(IO& io) override {
    IList::fill(io);
    io.Write(body.data(), static_cast<unsigned>(body.size()));
  }
  void parse(IO& io) override { io.Read(body.data(), static_cast<unsigned>(body.size())); }

  std::array<unsigned char, 64> body{};
};

}  // namespace kestro::plugin::avi
