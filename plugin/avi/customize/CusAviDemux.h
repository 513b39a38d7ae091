// The element that plays AVI files from slow storage.
#pragma once

#include <memory>

#include "AviDemux.h"

namespace kestro::plugin::avi {

// Registered as "CusAviDemuxer". A demuxer element that can read through a cache, whose thread
// reads ahead and keeps the start of the file in memory:
//
//   demuxer->Set("path", "/mnt/share/in.avi");
//   demuxer->Set("preloadsz", 8 << 20);
//   demuxer->Set("vlcPreload", true);      // opens the file; the cache starts to fill
//   demuxer->StatusChange(IStatus::kOpen); // from here on, all reading goes through the cache
//   unsigned size = 0;
//   demuxer->Get("strdsize", size);        // must come first
//   unsigned char* data = buffer;          // of `size` bytes
//   demuxer->Get("strddata", data);        // fills it; false when there is nothing to copy
//   demuxer->StatusChange(IStatus::kClosed);  // deletes the cache, then closes the file
//
// The cache serves one file: set "vlcPreload" again after closing, or after naming another file.
// Open succeeds also for a file that cannot be opened or parsed, and plays nothing.
//
// While packets flow, "vlcPreload" may be set and the stream data read from any thread; these calls
// wait for the packet that is being read.
class CusAviDemuxer : public AviDemuxer {
 public:
  ~CusAviDemuxer() override;

  using AviDemuxer::Close;
  using AviDemuxer::Open;
  bool Open() override;
  bool Close() override;
  bool parseFile() override;

  // Installs the cache over the file, which is tried once per file, and switches its preload on or
  // off. If the cache cannot be made, nothing can be read until the next Open.
  bool VlcBufferPreload(bool preload);
  unsigned StrdSizeGet();  // the size of the data in the file's "strd" chunk; 0 without one
  // Copies that data, once its size has been read. Returns 1, or 0 on failure.
  unsigned StrdDataGet(unsigned char* buffer);

  static base::PropertyList Properties();

 protected:
  struct CacheSize {
    int blockBytes, blocks;
  };
  virtual CacheSize SizeOfCache() const { return {0x80000, 16}; }
  // Returns null when the cache cannot be made.
  virtual std::unique_ptr<IO> NewCache(IO* source);

 private:
  // Compatibility: applications set "handle"; nothing here reads it.
  unsigned handle = 0;

  int64 preloadsz = 0;
  bool _cacheReaderCreated = false;
  unsigned _strdSize = 0;  // 0: not known yet
  bool _opened = false;
};

}  // namespace kestro::plugin::avi
