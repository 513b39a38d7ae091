#include "media/AnnexB.h"

#include <algorithm>

namespace kestro::tool {

namespace {

using stream::AllCodes;
using stream::NalCodec;

constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

void AppendUnit(std::uint8_t const* data, std::size_t size, Bytes& out) {
  out.insert(out.end(), std::begin(kStartCode), std::end(kStartCode));
  out.insert(out.end(), data, data + size);
}

// The start of an access unit, up to its first slice.
struct Head {
  std::array<bool, 3> found{};  // which kinds of parameter sets it has
  std::size_t sets = 0;         // where parameter sets belong: after the delimiter
  std::size_t slice = 0;        // offset of the first slice
};

Head ReadHead(Bytes const& wide, NalCodec codec) {
  Head head;
  bool leading = true;
  for (stream::NalUnits<AllCodes> unit(codec, wide.data(), wide.size()); unit.More(); unit.Next()) {
    auto const header = unit.Header();
    std::size_t const start = unit.Code() == 0 ? 0 : unit.Code() - 1;
    if (leading && !header.IsDelimiter()) {
      head.sets = start;
      leading = false;
    }
    if (int const kind = header.ParameterSet(); kind >= 0)
      head.found[static_cast<std::size_t>(kind)] = true;
    head.slice = start;
    if (header.IsSlice()) break;
  }
  return head;
}

// Reads a record. Functions return false at its end.
struct RecordReader {
  std::uint8_t const* data;
  std::size_t left;

  // A big-endian number.
  bool Number(std::size_t bytes, std::size_t& value) {
    if (left < bytes) return false;
    value = 0;
    for (; bytes > 0; --bytes, --left) value = value << 8 | *data++;
    return true;
  }
  // {16-bit size, unit} `count` times; skips them if `out` is null.
  bool Units(std::size_t count, Bytes* out) {
    for (std::size_t length = 0; count > 0; --count) {
      if (!Number(2, length) || length > left) return false;
      if (out != nullptr) AppendUnit(data, length, *out);
      data += length;
      left -= length;
    }
    return true;
  }
};

}  // namespace

// The next start code of three bytes; the size if there is none.
static std::size_t FindShortCode(std::uint8_t const* data, std::size_t size, std::size_t from) {
  std::size_t code = stream::FindStartCode<AllCodes>(data, size, from);
  while (code < size && code != 0 && data[code - 1] == 0)
    code = stream::FindStartCode<AllCodes>(data, size, code + 3);
  return code;
}

void AppendWide(std::uint8_t const* data, std::size_t size, Bytes& out) {
  out.reserve(out.size() + size + 16);
  std::size_t copied = 0;
  for (std::size_t code = FindShortCode(data, size, 0); code < size;
       code = FindShortCode(data, size, code + 3)) {
    out.insert(out.end(), data + copied, data + code);
    out.push_back(0);
    copied = code;
  }
  out.insert(out.end(), data + copied, data + size);
}

bool AnnexB::Configure(std::uint8_t const* extra, std::size_t size) {
  for (Bytes& sets : _sets) sets.clear();
  _lengthBytes = 0;
  if (_codec == NalCodec::kH264 && size >= 7 && extra[0] == 1) return ReadAvcRecord(extra, size);
  // The first byte of an "hvcC" may be 0, but it does not start like a start code.
  bool const record = size >= 3 && (extra[0] != 0 || extra[1] != 0 || extra[2] > 1);
  if (_codec == NalCodec::kHevc && record) return ReadHevcRecord(extra, size);
  AppendWide(extra, size, _sets[0]);  // all kinds
  return true;
}

// The record: version, profile, compatibility, level, 6 bits + length size - 1, 3 bits + count of
// SPS, {16-bit size, SPS}..., count of PPS, {16-bit size, PPS}...
bool AnnexB::ReadAvcRecord(std::uint8_t const* extra, std::size_t size) {
  _lengthBytes = (extra[4] & 3u) + 1;
  RecordReader reader{extra + 5, size - 5};
  std::size_t count = 0;
  if (!reader.Number(1, count) || !reader.Units(count & 0x1F, &_sets[0])) return false;
  if (!reader.Number(1, count)) return true;  // writers omit an empty PPS list
  return reader.Units(count, &_sets[1]);
}

// The record: 21 bytes of profile and more, 6 bits + length size - 1, count of lists, lists of
// {2 bits + type of unit, 16-bit count, {16-bit size, unit}...}
bool AnnexB::ReadHevcRecord(std::uint8_t const* extra, std::size_t size) {
  if (size < 23) return false;
  _lengthBytes = (extra[21] & 3u) + 1;
  RecordReader reader{extra + 23, size - 23};
  for (unsigned lists = extra[22]; lists > 0; --lists) {
    std::size_t type = 0, count = 0;
    if (!reader.Number(1, type) || !reader.Number(2, count)) return false;
    // In a unit's header, the type is followed by one bit.
    stream::NalHeader const header(NalCodec::kHevc, static_cast<std::uint8_t>(type << 1));
    int const kind = header.ParameterSet();
    if (!reader.Units(count, kind >= 0 ? &_sets[static_cast<std::size_t>(kind)] : nullptr))
      return false;
  }
  return true;
}

bool AnnexB::Convert(std::uint8_t const* data, std::size_t size, bool key, Bytes& out) {
  out.clear();
  bool whole = true;
  // A writer may keep the record and store start codes. As a length, the first one would be 1.
  bool const codes =
      size >= sizeof kStartCode && std::equal(std::begin(kStartCode), std::end(kStartCode), data);
  if (_lengthBytes != 0) whole = AppendPrefixed(data, size, out);
  if (_lengthBytes == 0 || (!whole && codes)) {
    out.clear();
    AppendWide(data, size, out);
    whole = true;
  }
  if (key) AddParameterSets(out);
  return whole;
}

bool AnnexB::AppendPrefixed(std::uint8_t const* data, std::size_t size, Bytes& out) const {
  out.reserve(size + 64);
  std::size_t at = 0;
  for (std::size_t length = 0; ReadPrefix(data, size, at, length); at += length)
    if (length != 0) AppendUnit(data + at, length, out);
  return at == size;
}

// Reads the length of a unit and moves on to its first byte. Returns false, and does not move, at
// the end and when less is left.
bool AnnexB::ReadPrefix(std::uint8_t const* data, std::size_t size, std::size_t& at,
                        std::size_t& length) const {
  if (size - at < _lengthBytes) return false;
  length = 0;
  for (std::size_t i = 0; i < _lengthBytes; ++i) length = length << 8 | data[at + i];
  if (length > size - at - _lengthBytes) return false;
  at += _lengthBytes;
  return true;
}

bool AnnexB::ConvertInPlace(std::uint8_t* data, std::size_t size, bool key) const {
  if (key || size == 0) return false;
  if (_lengthBytes == 0) return FindShortCode(data, size, 0) >= size;
  if (_lengthBytes != sizeof kStartCode) return false;
  std::vector<std::size_t> prefixes;
  std::size_t at = 0;
  for (std::size_t length = 0; ReadPrefix(data, size, at, length); at += length) {
    if (length == 0) return false;
    prefixes.push_back(at - sizeof kStartCode);
  }
  if (at != size) return false;
  for (std::size_t const prefix : prefixes)
    std::copy(std::begin(kStartCode), std::end(kStartCode), data + prefix);
  return true;
}

void AnnexB::AddParameterSets(Bytes& unit) {
  Head const head = ReadHead(unit, _codec);
  if (head.found[0]) _setsInStream = true;
  // A byte stream with its own sets is recorded unchanged.
  if (_lengthBytes == 0 && _setsInStream) return;
  // Sets that others refer to go first, and the rest after those that they refer to.
  auto const first = static_cast<std::size_t>(
      std::find(head.found.begin(), head.found.end(), true) - head.found.begin());
  for (auto kind = static_cast<std::size_t>(ParameterSetKinds(_codec)); kind-- > 0;) {
    if (head.found[kind]) continue;
    std::size_t const at = kind < first ? head.sets : head.slice;
    unit.insert(unit.begin() + static_cast<std::ptrdiff_t>(at), _sets[kind].begin(),
                _sets[kind].end());
  }
}

}  // namespace kestro::tool
