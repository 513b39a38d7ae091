// The reading side of a track.
#include <algorithm>

#include "common/IStream.h"

namespace kestro::plugin::avi {

namespace {
constexpr int kSlack = 128;  // bytes behind a packet's payload
constexpr int64 kModest = 0x100000;
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
  // Only the low half of the position is used, as a signed number: files are read up to 2 GiB.
  int64 const at = static_cast<int>(static_cast<unsigned>(_cursor->offset) + 8);
  int64 size = _cursor->size;
  // Sizes that would cost memory are held against the file.
  if (size > kModest) size = std::clamp<int64>(io.Size() - at, 0, size);
  if (size > INT32_MAX - 2 * kSlack) return Packet::ReadFailure();

  stream::PacketAlloc const alloc(static_cast<int>(size) + kSlack, 64, 64);
  auto packet = base::Ref<Packet>::Take(new (alloc) Packet(alloc));
  packet->Pts(_clock / 1000 * 1000000);
  packet->Duration(int64(_cursor->duration / 1000) * 1000000);
  if (at != 0 && !io.Seek(at, IO::kBegin)) return Packet::ReadFailure();
  int64 const wanted = length > 0 ? std::min(length, size) : size;
  unsigned const got = io.Read(packet->Data(), static_cast<unsigned>(wanted));
  if (got == IO::kFailed) return Packet::ReadFailure();

  packet->Size(static_cast<int>(got));
  packet->Media(_media);
  unsigned flags = _cursor->flags;
  _clock += _durPerFrame;
  ++_cursor;
  if (DemuxISEnd()) flags |= _eosFlags;
  packet->Flags(flags | _extFlags);
  _extFlags = 0;
  packet->Seq(_seq++);
  packet->Hold();
  return packet.get();
}

ChunkParam* IStream::DemuxNext() {
  if (DemuxISEnd()) return _cursor;
  _clock += _cursor->duration;
  return ++_cursor;
}

ChunkParam* IStream::DemuxPrev() {
  if (_cursor == begin()) return _cursor;
  // The duration of the record being left, not of the one stepped over: it has always been so.
  _clock -= StepDuration();
  return --_cursor;
}

ChunkParam* IStream::DemuxSeek(int64& pts, bool key) {
  int64 target;
  if (__builtin_mul_overflow(pts, 1000, &target)) target = pts < 0 ? INT64_MIN : INT64_MAX;
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
  ChunkParam* found = nullptr;
  int foundClock = 0;  // 32 bits: later positions do not survive, which callers know
  for (; !DemuxISEnd() && _clock <= target; DemuxNext())
    if (!key || OnKey()) {
      found = _cursor;
      foundClock = static_cast<int>(_clock);
    }
  if (DemuxISEnd()) {
    DemuxPrev();  // and there it stays, key or not, unless the record starts at the target
    SeekBackward(target, key);
  } else if (found != nullptr) {
    _cursor = found;
    _clock = foundClock;
  } else {
    SeekBackward(target, key);
  }
}

void IStream::SeekBackward(int64 target, bool key) {
  if (_clock < target) return;
  while (_cursor != begin() && !(_clock <= target && (!key || OnKey()))) DemuxPrev();
}

void IStream::SeekToKey(int64& pts) {
  int64 const asked = pts;
  // Beyond what DemuxSeek keeps, walk past the target first: going back it loses nothing.
  if (asked > INT32_MAX / 1000)
    while (!DemuxISEnd() && _clock / 1000 <= asked) DemuxNext();
  DemuxSeek(pts, true);
  // A time beyond the last record leads to that record.
  if (begin() != end() && !OnKey()) SeekBackward(_clock, true);
  pts = _clock / 1000;
}

}  // namespace kestro::plugin::avi
