#include "VFIAviMuxer.h"

#include "PluginAvi.h"
#include "Register.h"

namespace kestro::plugin::avi {

using base::IOBuffer;

namespace {
constexpr int kCacheShift = 19;  // image mode syncs after at least 512 KiB of data
}

VFIAviMuxer::~VFIAviMuxer() {
  Detach();
  if (_blkio != nullptr) VFIAviMuxer::Close();
}

// Opening

void VFIAviMuxer::ResetFile() {
  _headerImage.reset();
  _lastSyncPts = 0;
  _clockTrack = nullptr;
  _accDataSize = 0;
  _finalSync = _flushFailed = false;
}

bool VFIAviMuxer::SetRsvdSize(IStream* stream, unsigned isVideo) {
  stream->Limit(static_cast<unsigned>(isVideo != 0 ? _rsvdVidSize : _rsvdAudSize));
  return true;
}

bool VFIAviMuxer::OpenFileConfig() {
  if (!_fileOpened) return true;
  ResetFile();
  ClearError();
  idx1WithTmpFileThreshold(-1);
  _periodicSync = _periodicSyncEn;
  _periodicSyncHeaderSize = static_cast<int64>(_headerSize);
  bool opened = false;
  unsigned char idx1First = 0;
  if (_vidtag == nullptr || !_vidtag->Get("idx1_first", idx1First)) {
    KESTRO_ERROR("!_vidtag");
  } else if (!SizesFit(idx1First)) {
    KESTRO_ERROR("!SizesFit(idx1First),the sizes of head and index do not fit");
    Fail("the sizes of head and index do not fit");
    return false;
  } else if (_periodicSync) {
    _periodicSyncMode =
        PeriodicSyncSetMode(reinterpret_cast<void*>(_periodicSyncCallback), idx1First);
    opened = PeriodicSyncBufferCreate(_periodicSyncMode);
    if (!opened) KESTRO_ERROR("!PeriodicSyncBufferCreate(_periodicSyncMode),OpenFileConfig");
  } else {
    _idx1RsvdSize = static_cast<unsigned>(_reservedSize);
    opened = AviMuxer::OpenFileConfig();
    if (!opened) KESTRO_ERROR("!AviMuxer::OpenFileConfig()");
    opened = opened && Barrier();
  }
  if (opened) return true;
  _headerImage.reset();
  if (CheckIO()) IOError(nullptr);  // otherwise it has been reported
  return false;
}

bool VFIAviMuxer::IndexFirst() const { return !_periodicSync || _periodicSyncMode == kImage; }

unsigned VFIAviMuxer::PeriodicSyncSetMode(void* callback, unsigned char idx1First) {
  if (idx1First == 1) return kImage;
  if (idx1First >= 2) {
    KESTRO_ERROR("idx1_first value (%d) set error, please set mux.muxer.avi.aviTag.idx1_first !!!" +
                 std::to_string(idx1First));
    KESTRO_ASSERT(0);
  }
  if (callback == nullptr) {
    KESTRO_ERROR("Error periodic sync enable not support no register sync callback");
    KESTRO_ASSERT(0);
  }
  return kCallback;
}

bool VFIAviMuxer::SizesFit(unsigned char idx1First) const {
  if (_reservedSize > INT32_MAX) return false;
  if (!_periodicSync) return true;
  if (_headerSize > _reservedSize) return false;
  return idx1First != 1 ||
         (_periodicSyncIdx1Size >= 8 && _periodicSyncIdx1Size <= _reservedSize - _headerSize);
}

VFIAviMuxer::Image VFIAviMuxer::NewImage(int64 size) {
  Image image;
  if (size <= INT32_MAX) image = std::make_unique<IOBuffer>(static_cast<int>(size));
  if (image != nullptr && image->Max() == size) return image;
  KESTRO_ERROR("!pbuf");
  return nullptr;
}

bool VFIAviMuxer::PeriodicSyncBufferCreate(unsigned mode) {
  if (mode > kCallback) {
    KESTRO_ERROR(mode == 2 ? "Error periodic sync enable not support no register sync callback"
                           : "Error Periodic Sync Mode !!!");
    KESTRO_ASSERT(0);
  }
  _headerImage = NewImage(static_cast<int64>(_reservedSize));
  if (_headerImage == nullptr) {
    Fail(kNoImage);
    return false;
  }
  if (mode == kImage) _idx1RsvdSize = static_cast<unsigned>(_periodicSyncIdx1Size - 8);
  std::vector<IMedia*> list;
  if (!OpenConfig(list)) {
    KESTRO_ERROR("!OpenConfig(list)");
    return false;
  }
  if (char const* const failed = NewWriter()) {
    KESTRO_ERROR(failed);
    return false;
  }
  if (!IAviMuxer::Open(*_headerImage, list)) {
    KESTRO_ERROR("!IAviMuxer::Open(*_headerImage, list)");
    Fail("no track could be opened, or the headers have no room");
    return false;
  }
  if (IOBuffer* const p = _headerImage.get(); mode == kImage) KESTRO_ASSERT(p->Max() == p->Size());
  if (!WriteImage() || !CheckIO()) return false;
  if (mode == kCallback) CallBack(*_headerImage);
  BeginFile();
  return true;
}

// Recording

bool VFIAviMuxer::process(IO& io, Packet& packet) {
  bool const due = !_periodicSync || PeriodicSyncCacheSizeCheck(packet, kCacheShift);
  if (SinceSync(packet) > _flushtime && due) {
    UpdateIdx1();
    SetClock(packet);
    PeriodicSyncAccDataCacheSizeReset(kCacheShift);
  }
  return AviMuxer::process(io, packet);
}

void VFIAviMuxer::SetClock(Packet const& packet) {
  _lastSyncPts = packet.Pts();
  _clockTrack = packet.Media();
}

// The milliseconds since the last sync, by the packets' clock.
int64 VFIAviMuxer::SinceSync(Packet const& packet) {
  int64 const pts = packet.Pts();
  bool const back = packet.Media() == _clockTrack && pts < _lastSyncPts;
  if (_lastSyncPts == 0 || back) SetClock(packet);  // 0: not yet set
  int64 ns;
  if (__builtin_sub_overflow(pts, _lastSyncPts, &ns)) ns = pts < 0 ? INT64_MIN : INT64_MAX;
  return ns / 1000000;
}

bool VFIAviMuxer::PeriodicSyncCacheSizeCheck(Packet& packet, int shift) {
  if (_periodicSyncMode != kImage) return true;
  _accDataSize += static_cast<unsigned>(packet.Size());
  return _accDataSize >> shift != 0;
}

bool VFIAviMuxer::PeriodicSyncAccDataCacheSizeReset(int shift) {
  if (_periodicSync && _periodicSyncMode == kImage) _accDataSize %= base::uint64(1) << shift;
  return true;
}

bool VFIAviMuxer::Close() {
  _closing = _finalSync = true;
  if (!_fileOpened || _blkio == nullptr) return true;
  _blkio->Seek(0, IO::kEnd);
  if (!_flushFailed && !_blkio->Flush()) CutLost(*_blkio);
  bool const synced = UpdateIdx1() && CheckIO();
  _root->Reset();
  FreeFile();
  ResetFile();
  return CloseStream("plugin/avi/customize/VFIAviMuxer") && synced;
}

base::PropertyList VFIAviMuxer::Properties() {
  using M = VFIAviMuxer;
  base::PropertyList list;
  list.Member<M>("flushtime", &M::_flushtime, "milliseconds from sync to sync");
  list.Member<M>("reservedSize", &M::_reservedSize,
                 "bytes before the data with periodicSyncEn, of the index without it");
  list.Member<M>("rsvdVidSize", &M::_rsvdVidSize, "reserve of every video track");
  list.Member<M>("rsvdAudSize", &M::_rsvdAudSize, "reserve of every audio track");
  list.Member<M>("rsvdTxtSize", &M::_rsvdTxtSize, "not used");
  list.Member<M>("clusterSize", &M::_clusterSize, "not used");
  list.Member<M>("periodicSyncEn", &M::_periodicSyncEn,
                 "true syncs an image of all headers, false writes in place");
  list.Member<M>("periodicSyncHeaderSize", &M::_headerSize,
                 "bytes of the headers, the head of movi included");
  list.Member<M>("periodicSyncIdx1Size", &M::_periodicSyncIdx1Size,
                 "bytes of the index, its 8-byte header included");
  list.Member<M>("periodicSyncCallback", &M::_periodicSyncCallback,
                 "function given every image of headers and index");
  list.Inherit(AviMuxer::Properties());
  return list;
}

}  // namespace kestro::plugin::avi

void RegisterVFIAviMuxer(char const* name) {
  using kestro::plugin::avi::VFIAviMuxer;
  kestro::plugin::avi::RegisterClass<VFIAviMuxer>(name, "VFIAviMuxer-avi-muxer-vfi",
                                                  VFIAviMuxer::Properties(), "Tomas Weil");
}

RegisterFunction __cb_register_VFIAviMuxer = GetCbRegisterVFIAviMuxer(RegisterVFIAviMuxer);
