#include "AviMuxer.h"

#include <algorithm>
#include <utility>

#include "VideoTag.h"
#include "base/IOCacheWriter.h"

namespace kestro::plugin::avi {

using base::FuncIO;

AviMuxer::AviMuxer() : IMuxer("AviMuxer") {
  _streamFlag2 = false;
  _flags |= kMuxer | kOpensFile | kSeveralTracks;
}

AviMuxer::~AviMuxer() {
  Detach();
  if (_blkio != nullptr) AviMuxer::Close();
}

bool AviMuxer::Open() {
  if (_blkio != nullptr) {
    KESTRO_ERROR("_blkio != nullptr,the last file is not closed");
    return false;
  }
  _fileOpened = false;
  return true;
}

bool AviMuxer::ReceivePacket(Packet& packet, void*) {
  packet.Prefetch();
  if (!_fileOpened) {
    _fileOpened = true;
    if (!OpenFileConfig()) {
      KESTRO_ERROR("!OpenFileConfig()");
      FreeFile();
      IMuxer::Close();
      _fileOpened = false;
      return false;
    }
  }
  if (_blkio == nullptr) {
    KESTRO_ERROR("");
    return false;
  }
  if (WriteFails(packet)) return false;
  if (_notify == nullptr) return IAviMuxer::Process(*_blkio, packet) && CheckIO();
  base::IOCallBack wrapper(*_blkio, _notifyId, _notify);
  return IAviMuxer::Process(wrapper, packet) && CheckIO();
}

// Whether a packet can no longer be stored. A full file stays full: a smaller packet that still
// fits would come after a gap.
bool AviMuxer::WriteFails(Packet const& packet) {
  if (_full || !CheckIO()) return true;
  constexpr int64 kLargest = 0xFFFFFFFF;
  if (FinishedSize(*_blkio, 8 + int64(packet.Size()) + 1, 1) <= kLargest) return false;
  KESTRO_ERROR("FinishedSize() > 0xFFFFFFFF,the file is full");
  Fail("the file is full: an AVI file ends at 4 GiB");
  return _full = true;
}

bool AviMuxer::OpenFileConfig() {
  if (!_fileOpened) return true;
  std::vector<IMedia*> list;
  if (!OpenConfig(list)) {
    KESTRO_ERROR("!OpenConfig(list)");
    IOError(nullptr);
    return false;
  }
  if (char const* const failed = NewWriter()) {
    KESTRO_ERROR(failed);
    return false;
  }
  _totalSize = 0;
  if (!IAviMuxer::Open(*_blkio, list)) {
    KESTRO_ERROR("");
    Fail("no track could be opened");
    return false;
  }
  BeginFile();
  return true;
}

char const* AviMuxer::NewWriter() {
  int const blocks = _cacheBlocks == 1 ? 1 : kBlocks;
  _blkio = base::Make<IO>("io-cache-writer", Stream(), BlockSize(), blocks).release();
  if (_blkio == nullptr) return "!_blkio";
  if (!_blkio->Set("func_error", FuncIO([this](IO* io) { return IOError(io); })))
    return "!_blkio->Set(\"func_error\",FuncIO([this](IO*io){return IOError(io);}))";
  if (_cacheBlocks > kBlocks) _blkio->Set("blocks", _cacheBlocks);
  return nullptr;
}

bool AviMuxer::OpenConfig(std::vector<IMedia*>& list) {
  IAviMuxer::Config();
  if (!IMuxer::Open()) {
    KESTRO_ERROR("");
    return false;
  }
  _media.clear();
  for (auto const& port : _ports)
    if (auto media = port->Media(); port->IsInput() && media) {
      list.push_back(media.get());
      _media.push_back(std::move(media));
    }
  return true;
}

void AviMuxer::FreeFile() {
  Abandon();
  delete std::exchange(_blkio, nullptr);  // writes what is still in memory
  _media.clear();
  _eosCount = 0;
  _spillReported = _indexFull = _full = false;
}

bool AviMuxer::Close() {
  _closing = true;
  if (!_fileOpened || _blkio == nullptr) return true;
  if (_idx1First && IndexedSize(EntryCount()) > 8 + int64(_idx1RsvdSize)) WarnIndexFull();
  bool const finished = IAviMuxer::Close(*_blkio);
  if (!finished) KESTRO_ERROR("!IAviMuxer::Close(*_blkio)");
  FreeFile();
  bool const durable = Stream()->Flush();
  if (!durable) IOError(Stream());
  return CloseStream("plugin/avi/AviMuxer") && finished && durable;
}

void AviMuxer::BeginFile() {
  _sizeCache = 0;
  _closing = false;
}

bool AviMuxer::CloseStream(char const* source) {
  bool const closed = IMuxer::Close();
  if (!closed) KESTRO_ERROR_AT(source, "Close", "!IMuxer::Close()");
  return closed;
}

void AviMuxer::WarnIndexFull() {
  if (std::exchange(_indexFull, true)) return;
  base::AttrSet attrs;
  attrs.Add("reason", "index-full");
  Warn("the index is full: what follows is recorded, but not played", &attrs);
}

bool AviMuxer::process(IO&, Packet& packet) {
  ReportSpillFault();
  if (_mode == 0) return true;
  if ((packet.Flags() & _pktFlagsMask) != 0) ++_eosCount;
  if (_eosCount == static_cast<int>(_streams.size()) && !SendMessageUp("eos", nullptr, nullptr))
    KESTRO_ERROR("");
  return true;
}

bool AviMuxer::updateStream() {
  bool const updated = IAviMuxer::updateStream();
  ReportSpillFault();
  if (_para.indexLost) Fail("the index lacks what its temporary file did not give back");
  return updated;
}

void AviMuxer::ReportSpillFault() {
  if (!_para.spillFault || _spillReported) return;
  _spillReported = true;
  Warn("the index could not be spilled to its temporary file");
}

int64 AviMuxer::GetTotalSize() { return _totalSize + 16 * EntryCount() + 32768; }

int64 AviMuxer::GetDuration() {
  int64 longest = 0;
  for (IStream* stream : _streams)
    if (stream->Media()->IsVideo()) longest = std::max(longest, stream->Duration());
  return longest * 1000;
}

bool AviMuxer::SizeGet(long long* out) {
  if (out == nullptr) return false;
  if (!_closing) _sizeCache = GetTotalSize();
  *out = _sizeCache;
  return true;
}

bool AviMuxer::DiskNameSet(char drive) {
  _para.diskName = drive;
  return true;
}

bool AviMuxer::idx1WithTmpFileThreshold(int seconds) {
  KESTRO_ERROR("idx1WithTmpFile : " + std::to_string(seconds));
  _para.idx1WithTmpFile = seconds;
  return true;
}

base::PropertyList AviMuxer::Properties() {
  using M = AviMuxer;
  base::PropertyList list;
  list.Add<M, AviVideoTags*>(
      "vidtag", "extra chunks and the place of the index; not owned",
      [](M& m, AviVideoTags*& out) {
        out = dynamic_cast<AviVideoTags*>(m._vidtag);
        return true;
      },
      [](M& m, AviVideoTags* const& tags) {
        m._vidtag = tags;
        return true;
      });
  list.Member<M>("constFrameRate", &M::_frameRate, "frames per second of the video tracks");
  list.Member<M>("frameRateSave", &M::_frameRate, "the same as constFrameRate");
  list.Add<M, int>(
      "listfile", "seconds of index entries kept in memory before they go to a file, -1 for all",
      [](M& m, int& out) {
        out = m._para.idx1WithTmpFile;
        return true;
      },
      [](M& m, int const& seconds) { return m.idx1WithTmpFileThreshold(seconds); });
  list.Add<M, long long*>(
      "sizeGet", "set to a variable's address, stores the expected file size there",
      [](M& m, long long*& out) {
        long long now;
        out = &m._sizeCache;
        return m.SizeGet(&now);
      },
      [](M& m, long long* const& out) { return m.SizeGet(out); });
  list.Add<M, char>(
      "diskName", "drive letter of the index files, none for the temporary folder",
      [](M& m, char& out) {
        out = m._para.diskName;
        return true;
      },
      [](M& m, char const& drive) { return m.DiskNameSet(drive); });
  list.Member<M>("mode", &M::_mode, "1 counts end-of-stream packets and sends \"eos\"");
  list.Add<M, bool>(
      "pktflags", "whether a file is open; set, it is not opened",
      [](M& m, bool& opened) {
        opened = m._fileOpened;
        return true;
      },
      [](M& m, bool const& opened) {
        if (m._blkio != nullptr) return opened;  // an open file stays open
        m._fileOpened = opened;
        return true;
      });
  list.Member<M>(
      "cacheBlocks", &M::_cacheBlocks,
      "blocks of 512 KiB that the writer may hold while the storage stalls; 1: it has no thread");
  list.Inherit(IMuxer::Properties());
  return list;
}

}  // namespace kestro::plugin::avi
