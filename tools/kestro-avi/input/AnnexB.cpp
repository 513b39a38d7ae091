#include "input/AnnexB.h"

#include <algorithm>
#include <cstring>

namespace kestro::tool {

namespace {

constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

// The NAL unit types of a codec.
struct UnitTypes {
  int shift, mask;  // of the type in the unit's first byte
  int firstSlice, lastSlice, delimiter;
  std::array<int, 3> sets;  // the kinds of parameter sets, each referring to the one before
  std::size_t kinds;

  int Of(std::uint8_t byte) const { return byte >> shift & mask; }
  bool IsSlice(int type) const { return type >= firstSlice && type <= lastSlice; }
  // The kind of parameter set, `kinds` for another unit.
  std::size_t Kind(int type) const {
    auto const end = sets.begin() + static_cast<std::ptrdiff_t>(kinds);
    return static_cast<std::size_t>(std::find(sets.begin(), end, type) - sets.begin());
  }
};
constexpr UnitTypes kTypes[] = {{0, 0x1F, 1, 5, 9, {7, 8}, 2},
                                {1, 0x3F, 0, 31, 35, {32, 33, 34}, 3}};

void AppendUnit(std::uint8_t const* data, std::size_t size, Bytes& out) {
  out.insert(out.end(), std::begin(kStartCode), std::end(kStartCode));
  out.insert(out.end(), data, data + size);
}

// The offset of the next 00 00 01 at or after `from`; `size` if there is none.
std::size_t NextCode(std::uint8_t const* data, std::size_t size, std::size_t from) {
  for (std::size_t i = from + 2; i < size; ++i) {
    auto const* one = static_cast<std::uint8_t const*>(std::memchr(data + i, 1, size - i));
    if (one == nullptr) break;
    i = static_cast<std::size_t>(one - data);
    if (data[i - 1] == 0 && data[i - 2] == 0) return i - 2;
  }
  return size;
}

// What a wide access unit begins with, up to its first slice.
struct Head {
  std::array<bool, 3> found{};  // the kinds of parameter sets
  std::size_t sets = 0;         // where parameter sets belong: behind the delimiter
  std::size_t slice = 0;        // the first slice
};

Head Look(Bytes const& unit, UnitTypes const& types) {
  Head head;
  bool leading = true;
  for (std::size_t code = NextCode(unit.data(), unit.size(), 0); code + 3 < unit.size();
       code = NextCode(unit.data(), unit.size(), code + 3)) {
    std::size_t const start = code == 0 ? 0 : code - 1;
    int const type = types.Of(unit[code + 3]);
    if (leading && type != types.delimiter) {
      head.sets = start;
      leading = false;
    }
    if (std::size_t const kind = types.Kind(type); kind < types.kinds) head.found[kind] = true;
    head.slice = start;
    if (types.IsSlice(type)) break;
  }
  return head;
}

// Reads a big-endian number of a record; false at its end.
struct RecordReader {
  std::uint8_t const* data;
  std::size_t left;

  bool Number(std::size_t bytes, std::size_t& value) {
    if (left < bytes) return false;
    value = 0;
    for (; bytes > 0; --bytes, --left) value = value << 8 | *data++;
    return true;
  }
  // {16-bit size, unit} `count` times; a null `out` passes over them.
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

void AppendWide(std::uint8_t const* data, std::size_t size, Bytes& out) {
  out.reserve(out.size() + size + 16);
  std::size_t copied = 0;
  for (std::size_t code = NextCode(data, size, 0); code < size;
       code = NextCode(data, size, code + 3)) {
    if (code != 0 && data[code - 1] == 0) continue;
    out.insert(out.end(), data + copied, data + code);
    out.push_back(0);
    copied = code;
  }
  out.insert(out.end(), data + copied, data + size);
}

bool AnnexB::Configure(std::uint8_t const* extra, std::size_t size) {
  for (Bytes& sets : _sets) sets.clear();
  _lengthBytes = 0;
  if (_codec == kH264 && size >= 7 && extra[0] == 1) return AvcRecord(extra, size);
  // The version of an "hvcC" may be 0, but not what follows it, as in a start code.
  bool const record = size >= 3 && (extra[0] != 0 || extra[1] != 0 || extra[2] > 1);
  if (_codec == kHevc && record) return HevcRecord(extra, size);
  AppendWide(extra, size, _sets[0]);  // all kinds, in their order
  return true;
}

// The record: version, profile, compatibility, level, 6 bits + length size - 1, 3 bits + count of
// SPS, {16-bit size, SPS}..., count of PPS, {16-bit size, PPS}...
bool AnnexB::AvcRecord(std::uint8_t const* extra, std::size_t size) {
  _lengthBytes = (extra[4] & 3u) + 1;
  RecordReader reader{extra + 5, size - 5};
  std::size_t count = 0;
  if (!reader.Number(1, count) || !reader.Units(count & 0x1F, &_sets[0])) return false;
  if (!reader.Number(1, count)) return true;  // writers leave out an empty PPS list
  return reader.Units(count, &_sets[1]);
}

// The record: 21 bytes of profile and the like, 6 bits + length size - 1, count of lists, lists of
// {2 bits + type of unit, 16-bit count, {16-bit size, unit}...}
bool AnnexB::HevcRecord(std::uint8_t const* extra, std::size_t size) {
  if (size < 23) return false;
  _lengthBytes = (extra[21] & 3u) + 1;
  RecordReader reader{extra + 23, size - 23};
  for (unsigned lists = extra[22]; lists > 0; --lists) {
    std::size_t type = 0, count = 0;
    if (!reader.Number(1, type) || !reader.Number(2, count)) return false;
    std::size_t const kind = kTypes[kHevc].Kind(static_cast<int>(type & 0x3F));
    if (!reader.Units(count, kind < kTypes[kHevc].kinds ? &_sets[kind] : nullptr)) return false;
  }
  return true;
}

bool AnnexB::Convert(std::uint8_t const* data, std::size_t size, bool key, Bytes& out) {
  out.clear();
  bool whole = true;
  if (_lengthBytes != 0)
    whole = AppendPrefixed(data, size, out);
  else
    AppendWide(data, size, out);
  if (key) AddParameterSets(out);
  return whole;
}

bool AnnexB::AppendPrefixed(std::uint8_t const* data, std::size_t size, Bytes& out) const {
  out.reserve(size + 64);
  std::size_t at = 0;
  while (size - at >= _lengthBytes) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < _lengthBytes; ++i) length = length << 8 | data[at + i];
    at += _lengthBytes;
    if (length > size - at) return false;
    if (length != 0) AppendUnit(data + at, length, out);
    at += length;
  }
  return at == size;
}

void AnnexB::AddParameterSets(Bytes& unit) {
  UnitTypes const& types = kTypes[_codec];
  Head const head = Look(unit, types);
  if (head.found[0]) _setsInStream = true;
  // A byte stream that brings its own sets is recorded as it is.
  if (_lengthBytes == 0 && _setsInStream) return;
  // Those that others refer to go in front, the rest behind what they refer to.
  auto const first = static_cast<std::size_t>(
      std::find(head.found.begin(), head.found.end(), true) - head.found.begin());
  for (std::size_t kind = types.kinds; kind-- > 0;) {
    if (head.found[kind]) continue;
    std::size_t const at = kind < first ? head.sets : head.slice;
    unit.insert(unit.begin() + static_cast<std::ptrdiff_t>(at), _sets[kind].begin(),
                _sets[kind].end());
  }
}

}  // namespace kestro::tool
