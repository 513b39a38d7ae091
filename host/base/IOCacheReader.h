// The caching reader, registered as "KestIOCacheReader-io-cache-reader-kest".
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "base/IO.h"

namespace kestro::base {

// Reads a slow IO in large blocks on a separate thread.
//
// All reads are served from memory. If the block that a read needs is not in memory, it is fetched,
// and the blocks after it are read ahead. The read-ahead doubles with every block read in order, up
// to three quarters of the blocks. It restarts at one block when a read needs a block that is not
// in memory, so trick play costs little more than the blocks it touches. A seek only changes the
// position. The preload additionally keeps the first bytes of the stream in memory. It is fetched
// when there is nothing else to fetch.
//
// A block that cannot be read completely does not stop the read-ahead. A read from such a block
// asks the source again, for only the bytes it needs. If that fails, the read fails: it returns the
// bytes read before the failure or, if there are none, kFailed without changing the position.
//
// With 0 blocks there is no thread: a read fetches the block that it needs, and blocks of the
// preload stay in memory once they have been read.
//
// Only the reader's thread uses the source, one call at a time, from construction to the end of
// destruction. The destructor waits for the call in progress and for nothing else. The size of the
// source is read once, during construction. One thread reads and seeks; properties may be used from
// any thread.
//
// Parameters: "preload" (bool: keep the preload in memory; false frees it), "preloaded" (int64,
// read only: how many bytes of the preload, from the start, are in memory).
class KESTRO_API IOCacheReader : public IO {
 public:
  // The source must outlive the reader. The reader uses at most `blocks` blocks of `blockSize`
  // bytes, plus the preload, which is rounded up to whole blocks and never exceeds the stream.
  IOCacheReader(IO* source, int blockSize, int blocks, int64 preloadBytes);
  ~IOCacheReader() override;

  bool Configure(AttrSet& attrs) override;  // also false if no thread could be started

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
    unsigned fill;  // kFailed: could not be read completely
  };
  struct Request {
    int64 at;
    unsigned char* data;
    unsigned size;
    unsigned got;
  };

  bool Threadless() const { return _maxAhead < 0; }
  bool Working() const { return Threadless() || _thread.joinable(); }
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
  int64 const _limit;     // maximum number of blocks outside the preload
  int64 const _maxAhead;  // how many of these may be ahead of the reader; -1: there is no thread
  int64 const _size;
  int const _handle;
  int64 _position;

  std::mutex _mutex;                        // guards the members below
  std::condition_variable _work, _fetched;  // notify the thread, the reader
  std::map<int64, Block> _blocks;           // by block number
  int64 _at = -1;                           // block that the reader is in
  int64 _ahead = 0;                         // number of blocks to read ahead
  bool _waiting = false;                    // the reader waits for its block
  Request* _request = nullptr;              // a read that bypasses the blocks
  int64 _end;                               // end of the stream, as far as it is known
  int64 _preloadBytes;
  int64 _preloadNext = 0;  // first block of the preload that may be missing
  bool _preload = false, _stop = false;
  int _error = 0;
  std::thread _thread;
};

}  // namespace kestro::base
