// The end of a file: its index, its sizes, and recovery from a failing device.
#include <algorithm>
#include <cerrno>

#include "base/Console.h"
#include "common/IAviMuxer.h"

namespace kestro::plugin::avi {

using base::IOIntWriter;
using base::uint64;

namespace {
constexpr char kSource[] = "plugin/avi/common/IAviMuxer";  // Compatibility: in error lines

// Some streams report no error number.
bool MayBeFull(int error) {
  return error == 0 || error == ENOSPC || error == EDQUOT || error == EFBIG;
}
}  // namespace

bool IAviMuxer::Close(IO& io) {
  if (_root == nullptr) return false;
  updateStream();
  for (IStream* stream : _streams) stream->EndSpill();
  RestoreOrder();
  io.Seek(0, IO::kEnd);
  if (!io.Flush()) CutLost(io);
  updateBox();
  if (!WriteIdx1(io)) RetryIdx1(io);
  _fileSize = static_cast<unsigned>(io.Tell());
  FillHead(io);
  if (!io.Flush()) static_cast<void>(io.Truncate(io.Size()));  // a second try
  _root->Reset();
  Abandon();
  return true;
}

// The deepest chunk first, the size of the file last.
void IAviMuxer::FillHead(IO& io) {
  fillMovi(io);
  fillJunk(io);
  fillInfo(io);
  fillHdrl(io);
  fillRiff(io);
}

bool IAviMuxer::updateStream() {
  for (IStream* stream : _streams) stream->MuxUpdate();
  return true;
}

bool IAviMuxer::updateBox() {
  auto const isVideo = [](IStream* stream) { return stream->Media()->IsVideo(); };
  auto const last = std::find_if(_streams.rbegin(), _streams.rend(), isVideo);
  auto* avih = dynamic_cast<cavih*>(_hdrl->Find("avih"));
  if (last == _streams.rend() || avih == nullptr) return true;
  IStream const& video = **last;

  int width = 0;
  int height = 0;
  bool interlace = false;
  Fraction rate = _frameRate;
  video.Media()->Get("width", width);
  video.Media()->Get("height", height);
  video.Media()->Get("interlace", interlace);
  video.Media()->Get("framerate", rate);

  auto const num = static_cast<uint64>(rate.num);
  avih->dwMicroSecPerFrame =
      num == 0 ? 0 : static_cast<unsigned>(static_cast<uint64>(rate.den) * 1000000 / num);
  unsigned const wrapped = video.Bytes() * 1000u;  // Compatibility: wraps at 32 bits
  avih->dwMaxBytesPerSec =
      video.Duration() == 0 ? 0 : static_cast<unsigned>(wrapped / video.Duration());
  avih->dwTotalFrames = video.Length();
  avih->dwStreams = static_cast<unsigned>(_streams.size());
  avih->dwSuggestedBufferSize = 192000;
  avih->dwWidth = static_cast<unsigned>(width);
  avih->dwHeight = static_cast<unsigned>(height) * (interlace ? 2 : 1);
  avih->dwFlags = 0x10010;  // has an index, was captured
  return true;
}

// Writes the index. False when the device did not take it.
bool IAviMuxer::WriteIdx1(IO& io) {
  if (_idx1First) _idx1->fill(io);
  fillIdx1(io);
  return io.Flush();
}

bool IAviMuxer::fillIdx1(IO& io) {
  if (!_idx1First) {
    _idx1Pos = io.Tell();
    _idx1->Fill(io, false);
    return true;
  }
  // An index smaller than its reserve keeps the reserved size in its header, and zeros at its end.
  bool full = _idx1->Size() == _idx1RsvdSize;
  if (_idx1->Size() > _idx1RsvdSize) {
    KESTRO_ERROR_AT(kSource, __func__, "idx1 too small, data length over idx1 rsvd size");
    KESTRO_ERROR_AT(kSource, __func__, "!ret");
  }
  if (full) {
    full = io.Seek(_idx1Pos + 4, IO::kBegin);
    if (full)
      IOIntWriter(io).Write32(_idx1->Size());
    else
      KESTRO_ERROR_AT(kSource, __func__, "!ret");
  }
  io.Seek(0, IO::kEnd);
  return full;
}

int64 IAviMuxer::Bytes(IList const* chunk) {
  return chunk != nullptr ? int64(chunk->Size()) + 8 : 0;
}

bool IAviMuxer::fillMovi(IO& io) {
  int64 const padding = _junk == nullptr && _periodicSync && _periodicSyncJunkSize >= 0
                            ? _periodicSyncJunkSize + 8
                            : 0;
  int64 const index = _idx1First ? int64(_idx1RsvdSize) + 8 : Bytes(_idx1);
  // Everything before the list in either layout.
  int64 const before =
      8 + int64(_riff->Size()) + Bytes(_hdrl) + Bytes(_info) + Bytes(_junk) + padding;
  int64 const size = int64(_fileSize) - before - 8 - index;
  int64 const at = before + 4 + (_idx1First ? index : 0);
  IOIntWriter(io).Write32(static_cast<unsigned>(size), at, IO::kBegin);
  return true;
}

bool IAviMuxer::fillJunk(IO& io) {
  if (_junk == nullptr) return true;
  io.Seek(8 + int64(_riff->Size()) + Bytes(_hdrl) + Bytes(_info), IO::kBegin);
  _junk->Fill(io, true);
  return true;
}

bool IAviMuxer::fillInfo(IO& io) {
  if (_info == nullptr) return true;
  io.Seek(8 + int64(_riff->Size()) + Bytes(_hdrl), IO::kBegin);
  _info->Fill(io, true);
  return true;
}

bool IAviMuxer::fillHdrl(IO& io) {
  io.Seek(int64(_riff->Size()) + 8, IO::kBegin);
  _hdrl->Fill(io, true);
  return true;
}

bool IAviMuxer::fillRiff(IO& io) {
  io.Seek(4, IO::kBegin);
  IOIntWriter(io).Write32(_fileSize - 8);
  return true;
}

// Several tracks spill the shared list, so what was read back must be sorted into file order.
void IAviMuxer::RestoreOrder() {
  auto const earlier = [](ChunkParam const& a, ChunkParam const& b) { return a.offset < b.offset; };
  if (!std::is_sorted(_list->begin(), _list->end(), earlier))
    std::stable_sort(_list->begin(), _list->end(), earlier);
}

uint64 IAviMuxer::ChunkEnd(ChunkParam const& chunk) const {
  for (IStream* stream : _streams)
    if (stream->Owns(chunk)) return stream->ChunkEnd(chunk);
  return chunk.offset + 8 + chunk.size;
}

// How many chunks end at or before a position.
std::size_t IAviMuxer::WholeChunks(int64 end) const {
  std::size_t count = _list->size();
  while (count > 0 && ChunkEnd((*_list)[count - 1]) > static_cast<uint64>(end)) --count;
  return count;
}

// Cuts the file after the first `count` chunks of the list. False when the device does not hold
// that much.
bool IAviMuxer::KeepChunks(IO& io, std::size_t count) {
  uint64 const end = count > 0 ? ChunkEnd((*_list)[count - 1]) : static_cast<uint64>(_keptEnd);
  if (!io.Truncate(static_cast<int64>(end))) return false;
  for (std::size_t i = count; i < _list->size(); ++i)
    for (IStream* stream : _streams)
      if (stream->Owns((*_list)[i])) stream->DropChunk((*_list)[i]);
  _list->resize(count);
  for (IStream* stream : _streams) stream->UpdateLength();
  io.Seek(0, IO::kEnd);
  return true;
}

void IAviMuxer::CutLost(IO& io) {
  // Tries to write what is still in memory again: the fault may have passed.
  if (!KeepChunks(io, WholeChunks(io.Size()))) KeepChunks(io, WholeChunks(io.GoodEnd()));
}

// Tries a failed index again, then with fewer chunks before it, which helps only on a full device.
// On a failing device, what has been stored stays for a repair.
bool IAviMuxer::RetryIdx1(IO& io) {
  if (_idx1First) return io.Truncate(io.Size()) && WriteIdx1(io);
  auto const room = static_cast<uint64>(io.GoodEnd());
  if (KeepChunks(io, _list->size()) && WriteIdx1(io)) return true;
  if (!MayBeFull(io.Error())) return false;
  std::size_t count = WholeChunks(static_cast<int64>(room));
  while (count > 0 && ChunkEnd((*_list)[count - 1]) + IndexedSize(int64(count)) > room) --count;
  KeepChunks(io, count);
  updateBox();
  return WriteIdx1(io);
}

}  // namespace kestro::plugin::avi
