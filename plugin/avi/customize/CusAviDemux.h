// The element that plays AVI files from slow media.
#pragma once

#include <memory>

#include "AviDemux.h"

namespace kestro::plugin::avi {

// Registered as "CusAviDemuxer". A demuxer element that can read through a cache, whose thread
// reads ahead and keeps the start of the file in memory:
//
//   demuxer->Set("path", "/mnt/share/in.avi");
//   demuxer->Set("preloadsz", 8 << 20);
//   demuxer->Set("vlcPreload", true);      // opens the file; the cache begins to fill
//   demuxer->StatusChange(IStatus::kOpen); // reads through the cache, as everything that follows
//   unsigned size = 0;
//   demuxer->Get("strdsize", size);        // first
//   unsigned char* data = buffer;          // of so many bytes
//   demuxer->Get("strddata", data);        // fills it; false when there is nothing to copy
//   demuxer->StatusChange(IStatus::kClosed);  // the cache goes before the file does
//
// The cache is for one file: after closing, or when another file is named, "vlcPreload" is set
// again. A file that cannot be opened or parsed opens all the same, and plays nothing.
//
// "vlcPreload" may also be set, and the stream data read, from any thread while packets flow; they
// wait for the packet being read.
class CusAviDemuxer : public AviDemuxer {
 public:
  ~CusAviDemuxer() override;

  using AviDemuxer::Close;
  using AviDemuxer::Open;
  bool Open() override;
  bool Close() override;
  bool parseFile() override;

  // Installs the cache over the file if there is none, which is tried once for a file, and switches
  // its preload. When it could not be made, there is nothing to read from until the next Open.
  bool VlcBufferPreload(bool preload);
  unsigned StrdSizeGet();  // of the data in the file's "strd" chunk; 0 without one
  // Copies that data once its size is known. 1, or 0 when it cannot.
  unsigned StrdDataGet(unsigned char* buffer);

  static base::PropertyList Properties();

 protected:
  // Null when it cannot be made.
  virtual std::unique_ptr<IO> NewCache(IO* source);

 private:
  unsigned handle = 0;
  int64 preloadsz = 0;
  bool _cacheReaderCreated = false;
  unsigned _strdSize = 0;  // 0: not known yet
  bool _opened = false;
};

}  // namespace kestro::plugin::avi
