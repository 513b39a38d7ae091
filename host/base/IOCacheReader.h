// The caching reader, registered as "KestIOCacheReader-io-cache-reader-kest".
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "base/IO.h"

namespace kestro::base {

// Reads a slow IO in large blocks on a thread of its own.
//
// Whatever is read comes from memory: the block that a read needs is fetched when it is not there,
// and the blocks behind it ahead of the reader. How far ahead doubles with every block passed in
// order, up to three quarters of the blocks, and starts again from one where a read leads to a
// block that is not there: trick play costs little more than the blocks it touches. Seeking moves a
// number. The preload keeps the first bytes of the stream besides; it is fetched when there is
// nothing else to do.
//
// A block that cannot be read whole does not stop the reading ahead; what a read wants of it is
// asked of the source again, those bytes alone, and a failure then is the read's: the bytes that
// came, or all ones, and the position stays.
//
// The source is touched by the thread only, one call at a time, from the construction to the end of
// the destruction, which waits for the call under way and no more. Its size is what it was at the
// construction. One thread reads and seeks; properties may be used from any.
//
// Parameters: "preload" (bool: keep the preload; off frees its memory), "preloaded" (int64, read
// only: how many bytes from the start the preload has by now).
class KESTRO_API IOCacheReader : public IO {
 public:
  // The source outlives the reader. Memory is at most so many blocks of so many bytes, and the
  // preload rounded up to whole blocks, of what the stream has.
  IOCacheReader(IO* source, int blockSize, int blocks, int64 preloadBytes);
  ~IOCacheReader() override;

  bool Configure(AttrSet& attrs) override;  // false also when there is no thread to be had

  int64 Size() override { return _size; }
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const*, unsigned) override { return 0; }
  int Handle() override { return _handle; }
  int Error() override;

  bool Preload(bool on);
  bool Preload();
  int64 Preloaded();

  static PropertyList Properties();

 private:
  using Bytes = std::unique_ptr<unsigned char[]>;
  using Lock = std::unique_lock<std::mutex>;
  struct Block {
    Bytes bytes;
    unsigned fill;  // kFailed: could not be read whole
  };
  struct Request {
    int64 at;
    unsigned char* data;
    unsigned size;
    unsigned got;
  };

  Block const& Await(Lock& lock, int64 block);
  unsigned ReadAround(Lock& lock, int64 at, unsigned char* data, unsigned size);
  void MoveTo(int64 block);

  void Run();
  int64 NextBlock();
  void FetchBlock(Lock& lock, int64 block);
  unsigned Fetch(Lock& lock, int64 at, unsigned char* data, unsigned size);
  Bytes Trim(int64 blocks);
  bool Has(int64 block) const { return _blocks.count(block) > 0; }
  int64 PreloadBlocks() const;

  IO* const _source;
  unsigned const _blockSize;
  int64 const _limit;     // blocks besides the preload
  int64 const _maxAhead;  // of these, ahead of the reader
  int64 const _size;
  int const _handle;
  int64 _position;

  std::mutex _mutex;                        // guards what follows
  std::condition_variable _work, _fetched;  // for the thread, for the reader
  std::map<int64, Block> _blocks;           // by number
  int64 _at = -1;                           // the block that the reader is in
  int64 _ahead = 0;                         // blocks to have behind it
  bool _waiting = false;                    // for the block it is in
  Request* _request = nullptr;              // a read around the blocks
  int64 _end;                               // of the stream, as far as it is known
  int64 _preloadBytes;
  int64 _preloadNext = 0;  // the first block of the preload that may be missing
  bool _preload = false, _stop = false;
  int _error = 0;
  std::thread _thread;
};

}  // namespace kestro::base
