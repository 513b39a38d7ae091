// What a recording will be after it was mended.
#include <algorithm>
#include <cstring>

#include "avi/HeadCopy.h"
#include "base/LittleEndian.h"
#include "cli/Errors.h"
#include "repair/MendPlan.h"

namespace kestro::tool {

static constexpr int64 kHead = 8, kEntry = 16;

void MendPlan::ChooseTarget() {
  if (Total() == 0)
    throw Error(kUnusable, _job.name + ": no complete packet with data after its header");
  bool const front = _layout.front.id != 0,
             there = _source == Source::kBack && _all && _back.offset == _dataEnd && !_back.Cut() &&
                     _back.size == static_cast<int64>(Total()) * kEntry;
  bool const fits = front && _layout.front.Payload() % kEntry == 0 &&
                    Total() <= static_cast<base::uint64>(_layout.Room());
  _target = there ? Index::kThere : fits ? Index::kFront : Index::kBack;
  _size = _dataEnd;
  if (_target != Index::kFront) _size += kHead + static_cast<int64>(Total()) * kEntry;
  if (_size > UINT32_MAX) Refuse("with its index, it would exceed 4 GiB");
  if (_target == Index::kFront) FindStale();
  if (_target == Index::kThere && front) {
    Coverage const held = Cover(Source::kFront);
    _retires = !held.Good() || held.Entries() != Total();
  }
  _retires = _retires || (_target == Index::kBack && front);
  _resumes = _target == Index::kBack && FindsPart();
}

// Looks for entries of a sync of which the ones before are lost, or of data that is lost. The rest
// of the reserve, which may be large, is not read.
void MendPlan::FindStale() {
  std::vector<unsigned char> block(1 << 16);
  int64 const begin = _layout.front.Payload(), all = begin + int64{_layout.Room()} * kEntry;
  int64 const needed = begin + static_cast<int64>(Total()) * kEntry;
  bool more = true;
  for (int64 at = begin + static_cast<int64>(_entries) * kEntry; at < all && more;) {
    auto const size = static_cast<unsigned>(std::min<int64>(all - at, int64(block.size())));
    unsigned n = _file->Read(at, block.data(), size);
    while (n > 0 && block[n - 1] == 0) --n;
    at += size;
    more = n != 0 || at < needed;
    if (n != 0) _staleEnd = at - size + (n + kEntry - 1) / kEntry * kEntry;
  }
}

// Whether a part of the index is there already, and right. Refuses one that is in use and wrong:
// what it lists would not play while a new one is written.
bool MendPlan::FindsPart() {
  avi::Chunk index;
  if (!_file->Header(_dataEnd, _file->Size(), index) || index.id != base::Convert4("idx1"))
    return false;
  int64 at = index.Payload();
  bool same = _added.holes.empty() && index.size == static_cast<int64>(Total()) * kEntry;
  bool const read = same && ForEachEntry(
                                [&](avi::IndexEntry const& entry) {
                                  unsigned char bytes[kEntry];
                                  if (!same) return;
                                  unsigned const n = _file->Read(at, bytes, kEntry);
                                  at += kEntry;
                                  std::string const wanted = avi::Words(
                                      {entry.id, entry.flags,
                                       static_cast<base::uint64>(entry.offset), entry.size});
                                  same = std::memcmp(bytes, wanted.data(), n) == 0;
                                },
                                true);
  same = same && read;
  bool const used =
      _layout.front.id == 0 && _layout.MoviEnd() == _dataEnd && _layout.RiffEnd() > _dataEnd;
  if (used && !same) Refuse("its index at offset " + std::to_string(_dataEnd) + " is damaged");
  return same && used;
}

// A field that already has the value does not change.
void MendPlan::AddField(int64 at, base::uint64 value) {
  unsigned char bytes[4];
  auto const wanted = static_cast<unsigned>(value);
  if (_file->Read(at, bytes, 4) != 4 || base::Load32(bytes) != wanted)
    _fields.push_back({at, wanted});
}

void MendPlan::AddFields() {
  constexpr int64 kMaxBytes = 4, kFrames = 16, kLength = 32, kBuffer = 36;
  std::size_t video = _sums.size();  // the last such track, which the main header describes
  for (std::size_t i = 0; i < _sums.size(); ++i) {
    AddField(_layout.strh[i] + kLength, _sums[i].units);
    if (_layout.tracks[i].type == "video") video = i;
  }
  if (video < _sums.size()) AddField(_layout.avih + kFrames, _sums[video].units);
  AddField(_layout.movi.offset + 4, static_cast<base::uint64>(_dataEnd - _layout.movi.Payload()));
  AddField(4, static_cast<base::uint64>(_size - kHead));
  bool const incomplete =
      _target == Index::kBack || (_target == Index::kFront && (_newEntries != 0 || _staleEnd != 0));
  _needed = incomplete || !_fields.empty() || _size != _file->Size() || !Holes().empty() ||
            _retires || _layout.retired.size > _job.largestJunk || !_sides.empty();
  if (!_needed) return;
  // What the plug-in computes only for itself.
  for (std::size_t i = 0; i < _sums.size(); ++i) {
    unsigned buffer = 1;
    while (buffer < _sums[i].largest && buffer < 1u << 31) buffer *= 2;
    if (_layout.tracks[i].type == "text" && _sums[i].packets != 0)
      AddField(_layout.strh[i] + kBuffer, buffer);
  }
  if (video == _sums.size() || _layout.tracks[video].codec == "mjpeg") return;
  avi::AviTrack const& track = _layout.tracks[video];
  base::uint64 const frame_ms = track.rate == 0 ? 0 : 1000ull * track.scale / track.rate,
                     time_ms = frame_ms * _sums[video].packets;
  if (time_ms != 0)
    AddField(_layout.avih + kMaxBytes, static_cast<unsigned>(_sums[video].bytes * 1000) / time_ms);
}

void MendPlan::FillReport() {
  if (!_all)
    for (std::size_t i = 0; i < _gone.size(); ++i)
      _report.counts.lost[i] = {_gone[i].packets, _gone[i].bytes};
  for (TrackSum const& sum : _sums) _report.kept.push_back({sum.packets, sum.bytes});
  base::uint64 packets = 0;
  for (TrackSum const& sum : _sums) packets += sum.packets;
  for (TrackSum const& sum : _added.sums) packets -= sum.packets;
  _report.indexed = packets;
  _report.entries = Total();
  _report.front = _target == Index::kFront;
  _report.removed =
      std::max<int64>(0, _file->Size() - (_target == Index::kThere || _resumes ? _size : _dataEnd));
}

}  // namespace kestro::tool
