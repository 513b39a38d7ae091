// Reading a track.
#include <algorithm>

#include "common/IStream.h"

namespace kestro::plugin::avi {

namespace {
constexpr int kSlack = 128;  // bytes after a packet's payload
constexpr int64 kModest = 0x100000;

// Saturates instead of overflowing.
int64 Microseconds(int64 ms) {
  int64 us;
  if (__builtin_mul_overflow(ms, 1000, &us)) return ms < 0 ? INT64_MIN : INT64_MAX;
  return us;
}
}  // namespace

bool IStream::DemuxConfig(IList* strl, Object* tags) {
  _owner = true;
  _strl = strl;
  _list = new std::vector<ChunkParam>;
  _list->reserve(4096);
  _cursor = end();
  cstrh const* const header = strl != nullptr ? Header() : nullptr;
  if (header == nullptr) return false;
  unsigned const rate = header->dwScale == 0 ? 0 : header->dwRate / header->dwScale;
  _duration = rate == 0 ? 0 : 1000u * header->dwLength / rate;
  _count = header->dwLength;
  return demuxConfig(tags);
}

void IStream::DemuxReset() {
  _clock = 0;
  _cursor = begin();
  demuxReset();
}

Packet* IStream::GetPacket(IO& io, int64 length) {
  if (DemuxISEnd()) return nullptr;
  // Compatibility: only the low half of the position is used, as a signed number, so files are read
  // up to 2 GiB.
  int64 const at = static_cast<int>(static_cast<unsigned>(_cursor->offset) + 8);
  int64 size = _cursor->size;
  // Never allocates more than the rest of the file.
  if (size > kModest) size = std::clamp<int64>(io.Size() - at, 0, size);
  if (size > INT32_MAX - 2 * kSlack) return Packet::ReadFailure();

  if (at != 0 && !io.Seek(at, IO::kBegin)) return Packet::ReadFailure();

  stream::PacketAlloc const alloc(static_cast<int>(size) + kSlack, 64, 64);
  auto* const packet = new (alloc) Packet(alloc);
  packet->Pts(_clock / 1000 * 1000000);
  packet->Duration(int64(_cursor->duration / 1000) * 1000000);
  int64 const wanted = length > 0 ? std::min(length, size) : size;
  unsigned const got = io.Read(packet->Data(), static_cast<unsigned>(wanted));
  if (got == IO::kFailed) {
    packet->Release();
    return Packet::ReadFailure();
  }

  packet->Size(static_cast<int>(got));
  packet->Media(_media);
  unsigned flags = _cursor->flags;
  _clock += _durPerFrame;
  ++_cursor;
  if (DemuxISEnd()) flags |= _eosFlags;
  packet->Flags(flags | _extFlags);
  _extFlags = 0;
  packet->Seq(_seq++);
  return packet;
}

void IStream::SetDurations(unsigned us) {
  for (auto& chunk : *_list) chunk.duration = us;
  _uniform = _list->size();
}

void IStream::ShareDuration() {
  if (_durPerFrame == 0 && !_list->empty())
    _durPerFrame =
        static_cast<unsigned>(Microseconds(_duration) / static_cast<int64>(_list->size()));
}

int64 IStream::UniformStep() {
  return _uniform > 0 && _uniform == _list->size() ? begin()->duration : 0;
}

// The same as that many calls of DemuxNext or DemuxPrev over entries of equal duration.
void IStream::Skip(int64 entries, int64 step) {
  _cursor += entries;
  _clock += entries * step;
}

ChunkParam* IStream::DemuxNext() {
  if (DemuxISEnd()) return _cursor;
  _clock += _cursor->duration;
  return ++_cursor;
}

ChunkParam* IStream::DemuxPrev() {
  if (_cursor == begin()) return _cursor;
  // Compatibility: the duration of the entry it leaves, not of the one it steps over.
  _clock -= StepDuration();
  return --_cursor;
}

ChunkParam* IStream::DemuxSeek(int64& pts, bool key) {
  int64 const target = Microseconds(pts);
  if (begin() != end()) {
    if (target > _clock)
      SeekForward(target, key);
    else if (target < _clock || (key && !OnKey()))
      SeekBackward(target, key);
  }
  pts = _clock / 1000;
  return _cursor;
}

void IStream::SeekForward(int64 target, bool key) {
  ChunkParam* const from = _cursor;
  SkipUntil(target);
  if (DemuxISEnd()) {
    DemuxPrev();  // stays there, key or not, unless the entry starts at the target
    return SeekBackward(target, key);
  }
  // The last suitable entry that was passed.
  ChunkParam* found = _cursor;
  int64 clock = _clock;
  do {
    if (found == from) return SeekBackward(target, key);
    clock -= (--found)->duration;
  } while (key && (found->flags & 1) == 0);
  _cursor = found;
  _clock = static_cast<int>(clock);  // Compatibility: 32 bits; callers know
}

// Goes to the first entry that starts after a time, or to the end.
void IStream::SkipUntil(int64 target) {
  if (_clock > target) return;
  if (int64 const step = UniformStep(); step > 0) {
    int64 const left = end() - _cursor;
    Skip(_clock + left * step <= target ? left : (target - _clock) / step + 1, step);
  } else {
    while (!DemuxISEnd() && _clock <= target) DemuxNext();
  }
}

void IStream::SeekBackward(int64 target, bool key) {
  if (_clock < target) return;
  if (int64 const step = UniformStep(); step > 0) {
    int64 const before = _cursor - begin();
    Skip(_clock - before * step > target ? -before : -((_clock - target + step - 1) / step), step);
  }
  while (_cursor != begin() && !(_clock <= target && (!key || OnKey()))) DemuxPrev();
}

void IStream::SeekFar(int64& pts) {
  int64 const target = Microseconds(pts);
  // For times that DemuxSeek cannot keep, go past the target first: going back keeps them.
  if (target > INT32_MAX && target > _clock) {
    SkipUntil(target);
    if (DemuxISEnd()) DemuxPrev();  // the last entry for a time beyond the end
  }
  DemuxSeek(pts, true);
}

void IStream::SeekToKey(int64& pts) {
  SeekFar(pts);
  // A time beyond the last entry leads to that entry.
  if (begin() != end() && !OnKey()) SeekBackward(_clock, true);
  pts = _clock / 1000;
}

}  // namespace kestro::plugin::avi
