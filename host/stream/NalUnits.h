// The NAL units of H.264 and HEVC in Annex B form: where they are, and what they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "base/Types.h"

namespace kestro::stream {

enum class NalCodec { kH264, kHevc };

// By the codec's name, as media and files have it.
inline std::optional<NalCodec> NalCodecOf(std::string_view name) {
  if (name == "h264") return NalCodec::kH264;
  if (name == "hevc") return NalCodec::kHevc;
  return std::nullopt;
}

// SPS and PPS; for HEVC a VPS before them.
constexpr int ParameterSetKinds(NalCodec codec) { return codec == NalCodec::kHevc ? 3 : 2; }

// What a unit is, by the first byte of its header.
class NalHeader {
 public:
  constexpr NalHeader(NalCodec codec, std::uint8_t byte) : _codec(codec), _byte(byte) {}

  constexpr int Type() const { return Hevc() ? _byte >> 1 & 0x3F : _byte & 0x1F; }
  constexpr bool IsSlice() const { return Hevc() ? Type() < 32 : Type() >= 1 && Type() <= 5; }
  // A slice of a picture that decoding can begin with: IDR, for HEVC also BLA and CRA.
  constexpr bool IsKeySlice() const { return Hevc() ? Type() >= 16 && Type() <= 23 : Type() == 5; }
  constexpr bool IsDelimiter() const { return Type() == (Hevc() ? 35 : 9); }
  // Which kind of parameter set, from 0; each refers to the kind before. -1 for another unit.
  constexpr int ParameterSet() const {
    int const kind = Type() - (Hevc() ? 32 : 7);
    return kind >= 0 && kind < ParameterSetKinds(_codec) ? kind : -1;
  }

  // Whether the muxer stores a frame from this unit on: for H.264 a coded slice (1 and 5) or an
  // SPS; for HEVC trailing and sub-layer pictures (0 to 3, 8), IDR (19), CRA (21) or a parameter
  // set.
  constexpr bool StartsFrame() const {
    int const type = Type();
    if (!Hevc()) return (type & 0x1B) == 1 || type == 7;
    return type <= 3 || type == 8 || type == 19 || type == 21 || (type >= 32 && type <= 34);
  }
  // Whether the demuxer stops blanking here: for H.264 an IDR slice with nal_ref_idc 3, another
  // slice with 0 or 2; for HEVC an IDR picture with leading ones, or a trailing or sub-layer
  // picture, of layer 0.
  constexpr bool EndsBlank() const {
    if (!Hevc()) return _byte == 0x65 || (_byte & 0xBF) == 1;
    return _byte == 0x26 || _byte == 0x00 || _byte == 0x02 || _byte == 0x04;
  }

 private:
  constexpr bool Hevc() const { return _codec == NalCodec::kHevc; }

  NalCodec _codec;
  std::uint8_t _byte;
};

// Start codes as muxer and demuxer know them: 00 00 00 01, and two bytes of a unit after it.
struct LongCodes {
  static constexpr std::size_t kSize = 4, kRest = 2;
};
// 00 00 01, whatever surrounds it.
struct AllCodes {
  static constexpr std::size_t kSize = 3, kRest = 0;
};

// Whether a start code begins at one of the next kStartCodeBlock bytes; up to three bytes after
// them are read too. A code leaves a zero byte in `off`. One loop over words without branches: the
// same speed whatever the bytes are, and compilers make vector code of it.
constexpr std::size_t kStartCodeBlock = 256;
template <class Codes>
bool HasStartCode(std::uint8_t const* block) {
  using Word = std::size_t;
  constexpr Word ones = ~Word{0} / 0xFF, highs = ones << 7;
  auto const load = [](std::uint8_t const* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
  };
  Word zeros = 0;
  for (std::size_t i = 0; i < kStartCodeBlock; i += sizeof(Word)) {
    auto const* at = block + i;
    Word const off = load(at) | load(at + 1) | load(at + Codes::kSize - 2) |
                     (load(at + Codes::kSize - 1) ^ ones);
    zeros |= (off - ones) & ~off;
  }
  return (zeros & highs) != 0;
}

// The first position of [from, end) where a start code begins, or its end.
template <class Codes>
std::size_t PassToStartCode(std::uint8_t const* data, std::size_t from, std::size_t end) {
  auto const* const code = &"\0\0\0\1"[4 - Codes::kSize];
  while (from < end && std::memcmp(data + from, code, Codes::kSize) != 0) ++from;
  return from;
}

// The position of the first start code at or after `from`, `size` where there is none.
template <class Codes>
std::size_t FindStartCode(std::uint8_t const* data, std::size_t size, std::size_t from) {
  constexpr std::size_t least = Codes::kSize + Codes::kRest;
  if (size < least || from > size - least) return size;
  std::size_t const end = size - least + 1;
  // Most are near: at the beginning of a packet, or after a unit of a few bytes.
  std::size_t const near = end - from > 8 ? from + 8 : end;
  from = PassToStartCode<Codes>(data, from, near);
  if (from < near) return from;
  while (end - from >= kStartCodeBlock && !HasStartCode<Codes>(data + from))
    from += kStartCodeBlock;
  from = PassToStartCode<Codes>(data, from, end);
  return from < end ? from : size;
}

// The units of an access unit, in order:
//
//   for (NalUnits<AllCodes> unit(codec, data, size); unit.More(); unit.Next())
//     if (unit.Header().IsSlice()) ...
//
// Where a unit ends is looked for when it is asked for, and by Next.
template <class Codes>
class NalUnits {
 public:
  NalUnits(NalCodec codec, std::uint8_t const* data, std::size_t size)
      : _codec(codec), _data(data), _size(size), _code(FindStartCode<Codes>(data, size, 0)) {}

  bool More() const { return Begin() < _size; }
  void Next() {
    _code = End();
    _end = 0;
  }

  NalHeader Header() const { return {_codec, _data[Begin()]}; }
  std::size_t Code() const { return _code; }                  // the offset of its start code,
  std::size_t Begin() const { return _code + Codes::kSize; }  // ... of its header,
  std::size_t End() {                                         // ... of the next start code
    if (_end == 0) _end = FindStartCode<Codes>(_data, _size, Begin());
    return _end;
  }

 private:
  NalCodec const _codec;
  std::uint8_t const* const _data;
  std::size_t const _size;
  std::size_t _code, _end = 0;
};

// What the muxer does not store of an access unit: the bytes before the unit that starts the frame.
// 0 where none does.
inline std::size_t UnstoredBytes(NalCodec codec, std::uint8_t const* data, std::size_t size) {
  for (NalUnits<LongCodes> unit(codec, data, size); unit.More(); unit.Next())
    if (unit.Header().StartsFrame()) return unit.Code();
  return 0;
}

// The parameter sets that precede the first slice of an access unit, one after the other with their
// start codes. Empty where not every kind is there.
KESTRO_API std::vector<std::uint8_t> ParameterSets(bool hevc, std::uint8_t const* data,
                                                   std::size_t size);

}  // namespace kestro::stream
