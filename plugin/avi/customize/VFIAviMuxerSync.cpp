// Syncs: what becomes durable before what.
#include "VFIAviMuxer.h"

namespace kestro::plugin::avi {

using base::IOBuffer;

namespace {
constexpr char kSource[] = "plugin/avi/customize/VFIAviMuxer";  // Compatibility: in error lines
}

// Whether a file is open.
bool VFIAviMuxer::HasFile(char const* function) const {
  if (_blkio != nullptr && Stream() != nullptr) return true;
  KESTRO_ERROR_AT(kSource, function, _blkio == nullptr ? "!_blkio" : "!_io");
  return false;
}

// After a failed flush the system may have dropped what it could not store, so a later flush that
// succeeds proves nothing.
bool VFIAviMuxer::FlushFile() {
  if (_flushFailed || Stream()->Flush()) return !_flushFailed;
  _flushFailed = true;
  IOError(Stream());
  return false;
}

// Everything written before it becomes durable before anything written after it.
bool VFIAviMuxer::Barrier() { return !_flushFailed && _blkio->Flush() && FlushFile(); }

// Writes everything before the data. Tries twice: the fault may have passed.
template <class Store>
bool VFIAviMuxer::WriteFront(Store store) {
  bool const stored = store() || (!_flushFailed && _blkio->Truncate(_blkio->Size()) && store());
  _blkio->Seek(0, IO::kEnd);
  return stored;
}

bool VFIAviMuxer::UpdateIdx1() {
  if (!_periodicSync) return HasFile(__func__) && SyncInPlace();
  bool const synced = PeriodicSyncUpdateIdx1(_periodicSyncMode);
  if (!synced) KESTRO_ERROR_AT(kSource, __func__, "!PeriodicSyncUpdateIdx1(_periodicSyncMode)");
  return synced;
}

bool VFIAviMuxer::PeriodicSyncUpdateIdx1(unsigned mode) {
  if (mode > kCallback) return true;
  if (!HasFile(__func__)) return false;
  return mode == kImage ? SyncImage() : SyncByCallback();
}

// Writes the new index entries and all headers. Of the bytes already there, only a few counts
// change, and each of them is valid with an older or a newer index.
void VFIAviMuxer::UpdateFront(IO& front) {
  _idx1->fill(front);
  updateStream();
  updateBox();
  fillIdx1(front);
  if (_list->empty()) _keptEnd = _blkio->Size();
  _fileSize = static_cast<unsigned>(_blkio->Size());
  FillHead(front);
  if (_idx1->Size() > _idx1RsvdSize) WarnIndexFull();
}

// In place it is written when the file is opened: a later write could tear it.
bool VFIAviMuxer::fillJunk(IO& io) { return !_periodicSync || AviMuxer::fillJunk(io); }

bool VFIAviMuxer::SyncInPlace() {
  if (!Barrier()) return false;
  return WriteFront([this] {
    UpdateFront(*_blkio);
    return Barrier();
  });
}

bool VFIAviMuxer::SyncImage() {
  if (!Barrier()) return false;
  UpdateFront(*_headerImage);
  return WriteImage();
}

// Overwrites the start of the file.
bool VFIAviMuxer::WriteImage() {
  return WriteFront([this] {
    auto const size = static_cast<unsigned>(_headerImage->Size());
    _blkio->Seek(0, IO::kBegin);
    return _blkio->Write(_headerImage->Data(), size) == size && Barrier();
  });
}

bool VFIAviMuxer::SyncByCallback() {
  if (!Barrier()) return false;
  updateStream();
  updateBox();
  bool const handed = HandOver(_blkio->Size() + IndexedSize(EntryCount()));
  return _finalSync ? AppendIndex() && handed : handed;
}

// Builds headers and index for a file of this size with its index at the end, and passes them on.
bool VFIAviMuxer::HandOver(int64 fileSize) {
  int64 const head = _headerImage->Size();
  Image const image = NewImage(head + IndexedSize(EntryCount()));
  if (image == nullptr) {
    Warn(kNoImage);
    return false;
  }
  image->Seek(head, IO::kBegin);
  fillIdx1(*image);
  _fileSize = static_cast<unsigned>(fileSize);
  FillHead(*_headerImage);
  image->Seek(0, IO::kBegin);
  image->Write(_headerImage->Data(), static_cast<unsigned>(head));
  CallBack(*image);
  return true;
}

void VFIAviMuxer::CallBack(IOBuffer& image) {
  if (_periodicSyncCallback == nullptr) KESTRO_ASSERT(0);
  _periodicSyncCallback(_notifyId, static_cast<unsigned>(Stream()->Handle()), image.Data(),
                        static_cast<unsigned>(image.Size()),
                        static_cast<unsigned>(_periodicSyncHeaderSize));
}

// The index first, since the headers refer to it.
bool VFIAviMuxer::AppendIndex() {
  if (!WriteIdx1(*_blkio)) {
    if (!RetryIdx1(*_blkio)) return false;
    HandOver(_blkio->Size());
  }
  if (!FlushFile()) return false;
  _fileSize = static_cast<unsigned>(_blkio->Size());
  FillHead(*_headerImage);
  return WriteImage();
}

}  // namespace kestro::plugin::avi
