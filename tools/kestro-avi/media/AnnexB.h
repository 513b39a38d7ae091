// H.264 and HEVC access units in the form that recording takes: Annex B, four-byte start codes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "stream/NalUnits.h"

namespace kestro::tool {

using Bytes = std::vector<std::uint8_t>;

// Appends a byte stream, widening its three-byte start codes to four bytes.
void AppendWide(std::uint8_t const* data, std::size_t size, Bytes& out);

// Converts the access units of one track.
//
//   AnnexB converter(stream::NalCodec::kHevc);
//   converter.Configure(extra, size);           // again when the parameter sets change
//   converter.Convert(data, size, key, unit);   // each access unit, in order
class AnnexB {
 public:
  explicit AnnexB(stream::NalCodec codec) : _codec(codec) {}

  // Takes the container's parameter sets: an "avcC" or "hvcC" record, whose access units are then
  // length-prefixed, or a byte stream. False for a damaged record.
  bool Configure(std::uint8_t const* extra, std::size_t size);

  // Puts the access unit into `out`. Key frames get the container's parameter sets where the
  // stream has none of its own. False for damaged data; `out` then holds what is whole.
  bool Convert(std::uint8_t const* data, std::size_t size, bool key, Bytes& out);

 private:
  static constexpr std::size_t kMostKinds = 3;

  bool AvcRecord(std::uint8_t const* extra, std::size_t size);
  bool HevcRecord(std::uint8_t const* extra, std::size_t size);
  bool AppendPrefixed(std::uint8_t const* data, std::size_t size, Bytes& out) const;
  void AddParameterSets(Bytes& unit);

  stream::NalCodec _codec;
  std::size_t _lengthBytes = 0;         // of a length prefix; 0: the track is a byte stream
  bool _setsInStream = false;           // the byte stream carries its own
  std::array<Bytes, kMostKinds> _sets;  // by kind, with start codes; a byte stream's in the first
};

}  // namespace kestro::tool
