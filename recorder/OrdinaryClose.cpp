#include "recorder/OrdinaryClose.h"

#include <algorithm>
#include <cstring>

#include "avi/HeadCopy.h"
#include "avi/Index.h"
#include "base/FourCC.h"
#include "base/LittleEndian.h"

namespace kestro::record {

using avi::Words;
using base::Convert4;
using base::int64;

static constexpr unsigned kHead = 8, kEntry = 16;
static constexpr unsigned kBlock = 4096 * kEntry;
static constexpr unsigned kIdx1 = Convert4("idx1"), kJunk = Convert4("JUNK");

OrdinaryClose::OrdinaryClose(base::IO& file, FrontIndex const& index, unsigned largestJunk)
    : _file(file),
      _index(index),
      _reader(std::make_unique<base::IOFilter>("OrdinaryClose", file), "the recording"),
      _at(static_cast<int64>(index.at)),
      _largest(largestJunk),
      _piece((largestJunk - kEntry) / kEntry * kEntry),
      _end(_reader.Size()),
      _total(index.entries + index.beyond.size()) {}

std::string OrdinaryClose::Run(std::uint64_t free) {
  if (_total == 0) return {};
  if (std::string reason = Check(free); !reason.empty()) return reason;
  _appended = AppendIndex();
  bool const done = _appended && WriteAt(4, Words({_riff + kHead + _total * kEntry})) && Flush() &&
                    (_index.beyond.empty() || TurnIntoJunk());
  if (done) return {};
  int const error = _file.Error();
  std::string const reason = error != 0 ? std::strerror(error) : "the index cannot be written";
  return Undo() ? reason : reason + "; and the changes could not be undone";
}

// Why it cannot be done; empty if it can.
std::string OrdinaryClose::Check(std::uint64_t free) {
  avi::Chunk riff, index, movi;
  std::uint64_t const held = _index.entries * kEntry;
  bool const known =
      _reader.Header(0, _end, riff) && riff.size == _end - kHead &&
      _reader.Header(_at - kHead, _end, index) && index.id == kIdx1 &&
      static_cast<std::uint64_t>(index.size) >= held &&
      (_index.beyond.empty() || static_cast<std::uint64_t>(index.size) < held + kEntry) &&
      _reader.Header(static_cast<int64>(_index.data) - 12, _end, movi) &&
      movi.type == Convert4("movi") && movi.Payload() + movi.size == _end;
  if (!known) return "its chunks are not at the expected offsets";
  _riff = static_cast<unsigned>(riff.size);
  _room = static_cast<unsigned>(index.size);
  std::uint64_t const more = kHead + _total * kEntry;
  if (more > UINT32_MAX - static_cast<std::uint64_t>(_end)) return "the file would exceed 4 GiB";
  if (more > free) return "there is no free space for a second index";
  return {};
}

bool OrdinaryClose::WriteAt(int64 at, std::string const& bytes) {
  auto const size = static_cast<unsigned>(bytes.size());
  return _file.Seek(at, base::IO::kBegin) && _file.Write(bytes.data(), size) == size;
}

bool OrdinaryClose::AppendIndex() {
  return WriteAt(_end, Words({kIdx1, _total * kEntry})) && CopyEntries() && AddMissingEntries() &&
         _file.Flush();
}

bool OrdinaryClose::CopyEntries() {
  std::string block;
  int64 const all = static_cast<int64>(_index.entries) * kEntry;
  for (int64 done = 0; done < all; done += kBlock) {
    block.resize(static_cast<std::size_t>(std::min<int64>(kBlock, all - done)));
    auto const size = static_cast<unsigned>(block.size());
    if (_reader.Read(_at + done, block.data(), size) != size ||
        !WriteAt(_end + kHead + done, block))
      return false;
  }
  return true;
}

// The offset of the first chunk without an entry; -1 if unknown.
int64 OrdinaryClose::FirstMissing() {
  if (_index.entries == 0) return static_cast<int64>(_index.data);
  unsigned char last[kEntry];
  avi::Chunk chunk;
  int64 const at = _at + static_cast<int64>((_index.entries - 1) * kEntry);
  bool const leads = _reader.Read(at, last, kEntry) == kEntry &&
                     _reader.Header(base::Load32(last + 8), _end, chunk) &&
                     chunk.id == base::Load32(last);
  return leads ? _reader.Next(chunk) : -1;
}

// Adds the entries that were never written: the chunks have all but the key flags.
bool OrdinaryClose::AddMissingEntries() {
  if (_index.beyond.empty()) return true;
  std::string block;
  int64 place = _end + kHead + static_cast<int64>(_index.entries * kEntry);
  auto const store = [&] {
    bool const stored = WriteAt(place, block);
    place += static_cast<int64>(block.size());
    block.clear();
    return stored;
  };
  std::size_t found = 0;
  bool stored = true;
  int64 const end = _reader.ScanData(FirstMissing(), _end, [&](avi::Chunk const& chunk) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
    auto const codec = track < _index.codecs.size() ? _index.codecs[track] : TrackInfo::kH264;
    // As the plug-in counts sizes, see avi::SizeAgrees.
    bool const head = codec == TrackInfo::kMjpeg, pad = head || codec == TrackInfo::kText;
    if (chunk.size == 0 && !head) return;
    bool const key = found < _index.beyond.size() && _index.beyond[found];
    auto const u = [](int64 value) { return static_cast<std::uint64_t>(value); };
    ++found;
    block += Words({chunk.id, key ? avi::IndexEntry::kKey : 0, u(chunk.offset),
                    u(chunk.size + (pad ? chunk.size % 2 : 0) + (head ? kHead : 0))});
    if (block.size() == kBlock) stored = store() && stored;
  });
  return end == _end && found == _index.beyond.size() && store() && stored;
}

// Writes the headers of the second and later JUNK chunks or, unless `split`, the entries that were
// there.
bool OrdinaryClose::WritePieceHeaders(bool split) {
  int64 const held = static_cast<int64>(_index.entries) * kEntry;
  for (int64 at = _piece; at < held; at += _piece) {
    int64 const next = at + _piece < held ? at + _piece : _room;
    std::string bytes = Words({kJunk, static_cast<std::uint64_t>(next - at - kHead)});
    bool const known = split || (_file.Seek(_end + kHead + at, base::IO::kBegin) &&
                                 _file.Read(bytes.data(), kHead) == kHead);
    if (!known || !WriteAt(_at + at, bytes)) return false;
  }
  return true;
}

bool OrdinaryClose::TurnIntoJunk() {
  bool const large = _room > _largest;
  return WriteAt(_at - kHead, Words({kJunk})) && Flush() &&
         (!large || (WritePieceHeaders(true) && Flush() &&
                     WriteAt(_at - 4, Words({static_cast<std::uint64_t>(_piece)})) && Flush()));
}

// Undoes the steps in reverse order, so that the file always has one valid index.
bool OrdinaryClose::Undo() {
  if (_appended && !_index.beyond.empty()) {
    bool const restored = WriteAt(_at - 4, Words({_room})) && Flush() && WritePieceHeaders(false) &&
                          Flush() && WriteAt(_at - kHead, Words({kIdx1})) && Flush();
    if (!restored) return false;
  }
  if (_appended && !(WriteAt(4, Words({_riff})) && Flush())) return false;
  return _file.Truncate(_end) && _file.Flush();
}

}  // namespace kestro::record
