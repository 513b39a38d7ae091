#include "input/AnnexB.h"

#include <cstring>

namespace kestro::tool {

namespace {

constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};
enum UnitType { kSlice = 1, kIdr = 5, kSps = 7, kPps = 8, kDelimiter = 9 };

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
  bool sps = false, pps = false;
  std::size_t sets = 0;   // where parameter sets belong: behind the delimiter
  std::size_t slice = 0;  // the first slice
};

Head Look(Bytes const& unit) {
  Head head;
  bool leading = true;
  for (std::size_t code = NextCode(unit.data(), unit.size(), 0); code + 3 < unit.size();
       code = NextCode(unit.data(), unit.size(), code + 3)) {
    std::size_t const start = code == 0 ? 0 : code - 1;
    int const type = unit[code + 3] & 0x1F;
    if (leading && type != kDelimiter) {
      head.sets = start;
      leading = false;
    }
    head.sps |= type == kSps;
    head.pps |= type == kPps;
    head.slice = start;
    if (type >= kSlice && type <= kIdr) break;
  }
  return head;
}

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
  _sps.clear();
  _pps.clear();
  _lengthBytes = 0;
  if (size >= 7 && extra[0] == 1) return Record(extra, size);
  AppendWide(extra, size, _sps);  // both kinds, in their order
  return true;
}

// The record: version, profile, compatibility, level, 6 bits + length size - 1, 3 bits + count of
// SPS, {16-bit size, SPS}..., count of PPS, {16-bit size, PPS}...
bool AnnexB::Record(std::uint8_t const* extra, std::size_t size) {
  _lengthBytes = (extra[4] & 3u) + 1;
  std::size_t at = 5;
  for (Bytes* sets : {&_sps, &_pps}) {
    if (at >= size) return sets == &_pps;  // writers leave out an empty PPS list
    unsigned const count = extra[at++] & (sets == &_sps ? 0x1Fu : 0xFFu);
    for (unsigned i = 0; i < count; ++i) {
      if (size - at < 2) return false;
      std::size_t const length = extra[at] << 8 | extra[at + 1];
      at += 2;
      if (size - at < length) return false;
      AppendUnit(extra + at, length, *sets);
      at += length;
    }
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
  Head const head = Look(unit);
  if (head.sps) _setsInStream = true;
  // A byte stream that brings its own sets is recorded as it is.
  if (_lengthBytes == 0 && _setsInStream) return;
  auto insert = [&unit](std::size_t at, Bytes const& sets) {
    unit.insert(unit.begin() + static_cast<std::ptrdiff_t>(at), sets.begin(), sets.end());
  };
  if (!head.sps) {
    insert(head.sets, _pps);
    insert(head.sets, _sps);
  } else if (!head.pps) {
    insert(head.slice, _pps);
  }
}

}  // namespace kestro::tool
