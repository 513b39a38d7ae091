// Bringing index and headers up to date: what is durable before what.
#include "VFIAviMuxer.h"

namespace kestro::plugin::avi {

using base::IOBuffer;

namespace {
constexpr char kSource[] = "plugin/avi/customize/VFIAviMuxer";  // what error lines name
}

// Whether there is a file to bring up to date.
bool VFIAviMuxer::HasFile(char const* function) const {
  if (_blkio != nullptr && Stream() != nullptr) return true;
  KESTRO_ERROR_AT(kSource, function, _blkio == nullptr ? "!_blkio" : "!_io");
  return false;
}

// Once it has failed, the system may have forgotten what it could not store: a flush that works
// afterwards proves nothing.
bool VFIAviMuxer::FlushFile() {
  if (_flushFailed || Stream()->Flush()) return !_flushFailed;
  _flushFailed = true;
  IOError(Stream());
  return false;
}

// What is written before it is durable before what is written after it.
bool VFIAviMuxer::Barrier() { return !_flushFailed && _blkio->Flush() && FlushFile(); }

// What stands in front of the data: once more when it could not be written, as the fault may have
// passed.
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

// The entries that are new, and all headers, in front of the data. The bytes that stand there
// already do not change but for a few counts, each good with an index older or newer than it.
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

// In place it stands there since the file was opened; what is not written again cannot be torn.
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

// Over the start of the file.
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

// Headers and index, as they are in a file of this size, with the index at its end.
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

// The index goes first: the headers speak of it.
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
