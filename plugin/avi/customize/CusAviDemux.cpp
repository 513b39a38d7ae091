#include "CusAviDemux.h"

#include <algorithm>

#include "PluginAvi.h"
#include "Register.h"
#include "common/DataChunks.h"

namespace kestro::plugin::avi {

// Close here, while the object is whole: its thread calls overrides of this class.
CusAviDemuxer::~CusAviDemuxer() { CusAviDemuxer::Close(); }

bool CusAviDemuxer::Open() {
  if (!AviDemuxer::Open()) return false;
  std::lock_guard lock(_lock);
  _opened = true;
  _process = &IAviDemux::ProcessNormal;
  return true;
}

bool CusAviDemuxer::Close() {
  bool const closed = AviDemuxer::Close();
  std::lock_guard lock(_lock);
  _cacheReaderCreated = false;
  _strdSize = 0;
  if (closed) _opened = false;
  return closed;
}

bool CusAviDemuxer::parseFile() {
  if (!_streams.empty()) return true;
  if (Stream() != nullptr && !Covered()) _cacheReaderCreated = false;  // another file is named now
  AviDemuxer::parseFile();
  return true;
}

std::unique_ptr<base::IO> CusAviDemuxer::NewCache(IO* source) {
  auto const size = SizeOfCache();
  base::AttrSet attrs;
  AttrSetInit(attrs, nullptr, "KestIOCacheReader-io-cache-reader-kest", "KestIOCacheReader", "r",
              this);
  std::unique_ptr<IO> cache(
      base::IClass::New<IO>(attrs, source, size.blockBytes, size.blocks, preloadsz));
  if (cache != nullptr && !cache->Configure(attrs)) cache.reset();
  return cache;
}

bool CusAviDemuxer::VlcBufferPreload(bool preload) {
  if (Refused("vlcPreload")) return false;
  std::lock_guard lock(_lock);
  if (!_opened && _streams.empty() && !Covered() && (Stream() != nullptr || !_cacheReaderCreated)) {
    IIO::Open("rb");  // the file that is named now
    _cacheReaderCreated = false;
  }
  if (Stream() == nullptr) {
    KESTRO_ERROR("!_io");
    return false;
  }
  if (!_cacheReaderCreated) {
    Cover(NewCache(Stream()));
    _cacheReaderCreated = true;
  }
  if (Stream() != nullptr && Stream()->Set("preload", preload)) return true;
  KESTRO_ERROR("!_io->Set(\"preload\", preload)");
  return false;
}

unsigned CusAviDemuxer::StrdSizeGet() {
  if (Refused("strdsize")) return 0;
  std::lock_guard lock(_lock);
  if (_strdSize != 0 || _root == nullptr || Stream() == nullptr) return _strdSize;
  if (auto const* strd = dynamic_cast<cstrd*>(_root->Find("strd")))
    _strdSize =
        static_cast<unsigned>(std::clamp<int64>(Stream()->Size() - strd->dataPos, 0, strd->Size()));
  return _strdSize;
}

unsigned CusAviDemuxer::StrdDataGet(unsigned char* buffer) {
  if (Refused("strddata")) return 0;
  std::lock_guard lock(_lock);
  if (_root == nullptr || Stream() == nullptr || _strdSize == 0 || buffer == nullptr) return 0;
  auto const* strd = dynamic_cast<cstrd*>(_root->Find("strd"));
  if (strd == nullptr) return 0;
  int64 const before = Stream()->Tell();
  bool const read =
      Stream()->Seek(strd->dataPos, IO::kBegin) && Stream()->Read(buffer, _strdSize) == _strdSize;
  Stream()->Seek(before, IO::kBegin);
  return read;
}

base::PropertyList CusAviDemuxer::Properties() {
  base::PropertyList list;
  list.Member<CusAviDemuxer>("handle", &CusAviDemuxer::handle,
                             "a number for the application to use");
  list.Setter<CusAviDemuxer, bool>("vlcPreload", &CusAviDemuxer::VlcBufferPreload,
                                   "read through a cache; true keeps the start of the file in it");
  list.Member<CusAviDemuxer>(
      "preloadsz", &CusAviDemuxer::preloadsz,
      "how much of the file's start to keep, in bytes; set before vlcPreload");
  list.Getter<CusAviDemuxer>("strdsize", &CusAviDemuxer::StrdSizeGet,
                             "bytes of stream data in the file");
  list.Add<CusAviDemuxer, unsigned char*>(
      "strddata", "copies the stream data into a buffer of strdsize bytes; read strdsize first",
      [](CusAviDemuxer& demuxer, unsigned char*& buffer) {
        return demuxer.StrdDataGet(buffer) != 0;
      },
      nullptr);
  list.Inherit(AviDemuxer::Properties());
  return list;
}

}  // namespace kestro::plugin::avi

void RegisterCusAviDemuxer(char const* name) {
  using kestro::plugin::avi::CusAviDemuxer;
  kestro::plugin::avi::RegisterClass<CusAviDemuxer>(name, "CusAviDemuxer",
                                                    CusAviDemuxer::Properties(), "Ida Marel");
}

RegisterFunction __cb_register_CusAviDemuxer = GetCbRegisterCusAviDemuxer(RegisterCusAviDemuxer);
