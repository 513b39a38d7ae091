// Converts H.264 and HEVC access units to the form that is recorded: Annex B with four-byte start
// codes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "stream/NalUnits.h"

namespace kestro::tool {

using Bytes = std::vector<std::uint8_t>;

// Appends a byte stream and extends its three-byte start codes to four bytes.
void AppendWide(std::uint8_t const* data, std::size_t size, Bytes& out);

// Converts the access units of one track.
//
//   AnnexB converter(stream::NalCodec::kHevc);
//   converter.Configure(extra, size);           // again when the parameter sets change
//   converter.Convert(data, size, key, unit);   // each access unit, in order
class AnnexB {
 public:
  explicit AnnexB(stream::NalCodec codec) : _codec(codec) {}

  // Sets the container's parameter sets: an "avcC" or "hvcC" record, which means that access units
  // are length-prefixed, or a byte stream. Returns false for a damaged record.
  bool Configure(std::uint8_t const* extra, std::size_t size);
  bool Prefixed() const { return _lengthBytes != 0; }  // whether there was such a record

  // Converts an access unit. Adds the container's parameter sets to key frames if the stream itself
  // has none. Returns false for damaged data; `out` then has the intact part.
  bool Convert(std::uint8_t const* data, std::size_t size, bool key, Bytes& out);

  // Converts an access unit in its memory. Returns false, and changes nothing, where this is not
  // possible: for key frames, which may get parameter sets, for lengths of other than four bytes,
  // and for damaged data.
  bool ConvertInPlace(std::uint8_t* data, std::size_t size, bool key) const;

  // Adds the container's parameter sets to an access unit that Convert did not know to be a key
  // frame.
  void AddParameterSets(Bytes& unit);

 private:
  static constexpr std::size_t kMostKinds = 3;

  bool ReadAvcRecord(std::uint8_t const* extra, std::size_t size);
  bool ReadHevcRecord(std::uint8_t const* extra, std::size_t size);
  bool ReadPrefix(std::uint8_t const* data, std::size_t size, std::size_t& at,
                  std::size_t& length) const;
  bool AppendPrefixed(std::uint8_t const* data, std::size_t size, Bytes& out) const;

  stream::NalCodec _codec;
  std::size_t _lengthBytes = 0;  // size of a length prefix; 0: the track is a byte stream
  bool _setsInStream = false;    // the stream has its own parameter sets
  std::array<Bytes, kMostKinds>
      _sets;  // by kind, with start codes; all in the first for a byte stream
};

}  // namespace kestro::tool
