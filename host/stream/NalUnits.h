// The NAL units of H.264 and HEVC in Annex B form: their positions and types.
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

// The codec of this name, as media and files use it.
inline std::optional<NalCodec> NalCodecOf(std::string_view name) {
  if (name == "h264") return NalCodec::kH264;
  if (name == "hevc") return NalCodec::kHevc;
  return std::nullopt;
}

// SPS and PPS, preceded by a VPS for HEVC.
constexpr int ParameterSetKinds(NalCodec codec) { return codec == NalCodec::kHevc ? 3 : 2; }

// The type of a unit, from the first byte of its header.
class NalHeader {
 public:
  constexpr NalHeader(NalCodec codec, std::uint8_t byte) : _codec(codec), _byte(byte) {}

  constexpr int Type() const { return Hevc() ? _byte >> 1 & 0x3F : _byte & 0x1F; }
  constexpr bool IsSlice() const { return Hevc() ? Type() < 32 : Type() >= 1 && Type() <= 5; }
  // A slice of a picture at which decoding can start: IDR, for HEVC also BLA and CRA.
  constexpr bool IsKeySlice() const { return Hevc() ? Type() >= 16 && Type() <= 23 : Type() == 5; }
  constexpr bool IsDelimiter() const { return Type() == (Hevc() ? 35 : 9); }
  // The kind of parameter set, from 0; each kind refers to the one before it. -1 for other units.
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
  // Whether the demuxer stops blanking at this unit: for H.264 an IDR slice with nal_ref_idc 3, or
  // another slice with 0 or 2; for HEVC an IDR picture with leading pictures, or a trailing or
  // sub-layer picture, of layer 0.
  constexpr bool EndsBlank() const {
    if (!Hevc()) return _byte == 0x65 || (_byte & 0xBF) == 1;
    return _byte == 0x26 || _byte == 0x00 || _byte == 0x02 || _byte == 0x04;
  }

 private:
  constexpr bool Hevc() const { return _codec == NalCodec::kHevc; }

  NalCodec _codec;
  std::uint8_t _byte;
};

// Start codes as the muxer and demuxer find them: 00 00 00 01, followed by two bytes of a unit.
struct LongCodes {
  static constexpr std::size_t kSize = 4, kRest = 2;
};
// 00 00 01, whatever comes before or after it.
struct AllCodes {
  static constexpr std::size_t kSize = 3, kRest = 0;
};

// Whether a start code begins at one of the next kStartCodeBlock bytes; also reads up to three
// bytes after them. `off` has a zero byte where a code begins. The loop over words has no branches,
// so it takes the same time for all data, and compilers vectorise it.
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

// Returns the first position in [from, end) where a start code begins, or `end`.
template <class Codes>
std::size_t PassToStartCode(std::uint8_t const* data, std::size_t from, std::size_t end) {
  auto const begins = [data](std::size_t at) {
    return data[at] == 0 && data[at + 1] == 0 && data[at + Codes::kSize - 2] == 0 &&
           data[at + Codes::kSize - 1] == 1;
  };
  while (from < end && !begins(from)) ++from;
  return from;
}

// Returns the position of the first start code at or after `from`, or `size` if there is none.
template <class Codes>
std::size_t FindStartCode(std::uint8_t const* data, std::size_t size, std::size_t from) {
  constexpr std::size_t least = Codes::kSize + Codes::kRest;
  if (size < least || from > size - least) return size;
  std::size_t const end = size - least + 1;
  // Most are near `from`: at the beginning of a packet, or after a unit of a few bytes.
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
// Only End and Next search for the end of a unit.
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
  std::size_t Code() const { return _code; }                  // offset of the start code
  std::size_t Begin() const { return _code + Codes::kSize; }  // offset of the header
  std::size_t End() {                                         // offset of the next start code
    if (_end == 0) _end = FindStartCode<Codes>(_data, _size, Begin());
    return _end;
  }

 private:
  NalCodec const _codec;
  std::uint8_t const* const _data;
  std::size_t const _size;
  std::size_t _code, _end = 0;
};

// Returns how many bytes of an access unit the muxer does not store: those before the unit that
// starts the frame. 0 if no unit does.
inline std::size_t UnstoredBytes(NalCodec codec, std::uint8_t const* data, std::size_t size) {
  for (NalUnits<LongCodes> unit(codec, data, size); unit.More(); unit.Next())
    if (unit.Header().StartsFrame()) return unit.Code();
  return 0;
}

// Returns the parameter sets before the first slice of an access unit, one after the other with
// their start codes. Empty if any kind is missing.
KESTRO_API std::vector<std::uint8_t> ParameterSets(bool hevc, std::uint8_t const* data,
                                                   std::size_t size);

}  // namespace kestro::stream
