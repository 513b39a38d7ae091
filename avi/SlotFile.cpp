#include "avi/SlotFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/File.h"
#include "base/LittleEndian.h"

namespace kestro::avi {

using base::int64;
using base::IO;
using base::Load32;
using base::Store32;

namespace {

// The file: magic, version, slot size, zeros up to kHead, slots. A slot: generation, length,
// checksum of both and the image, 0, image.
constexpr unsigned char kMagic[] = {'k', 'e', 's', 't', 's', 'l', 'o', 't'};
constexpr unsigned kVersion = 1;
constexpr unsigned kHead = 4096;  // the largest sector size; written only once
constexpr unsigned kSlotHead = 16;
constexpr unsigned kBlock = 4096;  // part of an image that is written if it has changed

constexpr std::array<unsigned, 256> kCrcTable = [] {
  std::array<unsigned, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned value = i;
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320u : 0);
    table[i] = value;
  }
  return table;
}();

int64 SlotAt(unsigned slot, unsigned slotSize) { return kHead + int64{slot} * slotSize; }

bool ReadAt(IO& file, int64 at, void* data, unsigned size) {
  return file.Seek(at, IO::kBegin) && file.Read(data, size) == size;
}

bool WriteAt(IO& file, int64 at, void const* data, unsigned size) {
  return file.Seek(at, IO::kBegin) && file.Write(data, size) == size;
}

}  // namespace

unsigned Crc32(void const* data, std::size_t size, unsigned sum) {
  sum = ~sum;
  for (auto const *at = static_cast<unsigned char const*>(data), *end = at + size; at < end; ++at)
    sum = sum >> 8 ^ kCrcTable[(sum ^ *at) & 0xFF];
  return ~sum;
}

std::unique_ptr<IO> SlotFile::Folder::Create(std::string const& path) {
  return std::make_unique<base::FileIO>(path.c_str(), "rwbc");
}

bool SlotFile::Folder::Remove(std::string const& path) {
  return base::File::Delete(path.c_str()) || errno == ENOENT;
}

SlotFile::SlotFile(std::string const& path, unsigned firstSlot, Folder* folder)
    : _names(Names(path)), _folder(folder != nullptr ? *folder : _system), _slotSize(firstSlot) {}

bool SlotFile::Fail(std::string const& path, int error) {
  _error = path + ": " + std::strerror(error);
  return false;
}

// A failed attempt uses up a generation, because it may have written it.
bool SlotFile::Store(unsigned char const* data, unsigned size) {
  ++_generation;
  if (_file == nullptr || size > _slotSize - kSlotHead) return Grow(data, size);
  if (!WriteSlot(*_file, _next, data, size) || !_file->FlushData()) {
    _held[_next].clear();
    return Fail(Path(), _file->Error());
  }
  _next = 1 - _next;
  return true;
}

// An index only grows: most of it is already in the slot, from the image before the last.
bool SlotFile::WriteSlot(IO& file, unsigned slot, unsigned char const* data, unsigned size) {
  unsigned char head[kSlotHead] = {};
  Store32(head, _generation);
  Store32(head + 4, size);
  Store32(head + 8, Crc32(data, size, Crc32(head, 8)));
  int64 const at = SlotAt(slot, _slotSize);
  if (!WriteAt(file, at, head, kSlotHead)) return false;

  std::vector<unsigned>& held = _held[slot];
  std::size_t const before = held.size();
  held.resize((size + kBlock - 1) / kBlock);
  unsigned changed = 0, end = 0;  // the range still to be written
  for (std::size_t i = 0; end < size; ++i) {
    unsigned const from = end, length = std::min(kBlock, size - from);
    end += length;
    unsigned const sum = Crc32(data + from, length);
    unsigned const was = std::exchange(held[i], sum);
    bool const same = i < before && was == sum;
    if (same || end == size) {
      unsigned const upTo = same ? from : end;
      if (upTo > changed &&
          !WriteAt(file, at + kSlotHead + changed, data + changed, upTo - changed))
        return false;
    }
    if (same) changed = end;
  }
  return true;
}

// Writes all blocks of a new file, with the image in the first slot.
bool SlotFile::Create(IO& file, unsigned char const* data, unsigned size) {
  std::vector<unsigned char> zeros(64 * 1024);
  int64 const end = SlotAt(2, _slotSize);
  for (int64 at = 0; at < end; at += static_cast<int64>(zeros.size()))
    if (!WriteAt(file, at, zeros.data(),
                 static_cast<unsigned>(std::min<int64>(end - at, int64(zeros.size())))))
      return false;
  unsigned char head[16];
  std::copy(std::begin(kMagic), std::end(kMagic), head);
  Store32(head + 8, kVersion);
  Store32(head + 12, _slotSize);
  return WriteAt(file, 0, head, sizeof head) && WriteSlot(file, 0, data, size) && file.Flush();
}

bool SlotFile::Grow(unsigned char const* data, unsigned size) {
  unsigned const slotSize = _slotSize, name = _file != nullptr ? 1 - _current : 0;
  if (size > INT32_MAX - kSlotHead) return Fail(_names[name], EFBIG);
  while (size > _slotSize - kSlotHead) _slotSize *= 2;
  _held = {};
  std::unique_ptr<IO> file = _folder.Create(_names[name]);
  if (file == nullptr || !Create(*file, data, size)) {
    int const error = file != nullptr ? file->Error() : errno;
    file.reset();
    _folder.Remove(_names[name]);
    _slotSize = slotSize;
    _held = {};
    return Fail(_names[name], error);
  }
  _file = std::move(file);  // closes the old file, so that removing it frees its space
  _current = name;
  _next = 1;
  // Or, the first time, a file that an earlier recording left.
  return _folder.Remove(_names[1 - name]) || Fail(_names[1 - name], errno);
}

bool SlotFile::Remove() {
  if (_file == nullptr) return true;
  _file.reset();
  return _folder.Remove(Path()) || Fail(Path(), errno);
}

// Whether a slot's checksum is that of its head and image.
static bool IsIntact(IO& file, int64 image, unsigned char const* head) {
  std::vector<unsigned char> block(16 * kBlock);
  unsigned sum = Crc32(head, 8);
  for (unsigned left = Load32(head + 4); left != 0;) {
    unsigned const part = std::min(left, static_cast<unsigned>(block.size()));
    if (!ReadAt(file, image, block.data(), part)) return false;
    sum = Crc32(block.data(), part, sum);
    image += part;
    left -= part;
  }
  return sum == Load32(head + 8);
}

bool SlotFile::Find(IO& file, Place& place) {
  place = {};
  unsigned char head[16];
  if (!ReadAt(file, 0, head, sizeof head) ||
      !std::equal(std::begin(kMagic), std::end(kMagic), head) || Load32(head + 8) != kVersion)
    return false;
  unsigned const slotSize = Load32(head + 12);
  for (unsigned slot : {0u, 1u}) {
    int64 const at = SlotAt(slot, slotSize);
    if (slotSize < kSlotHead || !ReadAt(file, at, head, kSlotHead)) break;
    unsigned const generation = Load32(head), size = Load32(head + 4);
    bool const fits = size <= slotSize - kSlotHead && size <= file.Size() - at - kSlotHead;
    if (generation > place.generation && fits && IsIntact(file, at + kSlotHead, head))
      place = {generation, at + kSlotHead, size};
  }
  return true;
}

bool SlotFile::Read(IO& file, Image& image) {
  Place place;
  image = {};
  if (!Find(file, place)) return false;
  std::vector<unsigned char> bytes(place.size);
  if (place.generation != 0 && ReadAt(file, place.at, bytes.data(), place.size))
    image = {place.generation, std::move(bytes)};
  return true;
}

}  // namespace kestro::avi
