// The caching writer, registered as "io-cache-writer".
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/IO.h"

namespace kestro::base {

using FuncIO = std::function<bool(IO*)>;

// Gathers small writes into large, aligned ones and stores them behind the caller's back.
//
// Writes at the end are appended to a block of memory. A full block goes to the target on a thread
// of the writer, in order, while the caller fills the next; only when all blocks are full does
// Write wait, or store them itself. (Blocks that fill every few milliseconds may lie for 10 ms
// before the thread takes them, which spares waking it for each.) So that a medium that stalls is
// never felt:
//
//   blocks >= ceil((bytes per second * longest stall in seconds + burst) / bytes of a block) + 1
//
// where the burst is what comes at once beyond that rate: the largest packet, at the least.
//
// A write below the end is a patch: applied in memory where the block is still there, otherwise
// gathered with its neighbours and stored behind all data by the next Flush. Size, Tell and
// Seek(0, kEnd) count bytes still in memory.
//
// Flush returns when everything has been handed to the target, and goes no further: the data then
// survives a crash of this process's code, not of the machine. Destruction flushes.
//
// Errors are latched. A failed write is remembered and told through "func_error" on the caller's
// thread: at once when the caller was waiting for it, else by its next call, at the latest by Flush
// or destruction. From then on appends fail. What was stored before stays good: GoodEnd is its end,
// and patches below it still work. Truncate makes the writer go on, from any point up to the end:
// it first stores what is still in memory, patches too, once more.
//
// One thread calls the writer. The target belongs to the writer meanwhile, whose thread may use it
// at any time except between a Flush and the next Write.
//
// Parameters:
//   "func_error"  FuncIO: called with this writer for every failed write to the target; its result
//                 is not used
//   "blocks"      how many blocks may be held; it can be raised at any time
//   "waits"       how often Write has had to wait for a free block (read only)
//   "waited_us"   how long in all, in microseconds (read only)
//
// Memory is taken as it is needed: at most the blocks, and 8 KiB of patches.
class KESTRO_API IOCacheWriter : public IO {
 public:
  // The target outlives the writer; where it has a property "cacheBlocks", that is the least number
  // of blocks. The arguments are the bytes of a block and how many blocks may be held; with one,
  // the caller's thread stores it.
  IOCacheWriter(IO* target, int blockSize, int blocks);
  ~IOCacheWriter() override;

  int64 Size() override { return _current->End(); }
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;
  bool Flush() override;
  int Handle() override { return _target->Handle(); }
  int64 GoodEnd() override;
  bool Truncate(int64 size) override;
  int Error() override { return _error; }

  static PropertyList Properties();

 private:
  using Bytes = std::unique_ptr<unsigned char[]>;
  struct Block {
    Bytes bytes;
    int64 start = 0;  // its place in the stream
    unsigned fill = 0;
    int64 End() const { return start + fill; }
  };
  struct Run {
    int64 start;
    std::vector<unsigned char> bytes;
  };

  unsigned Append(unsigned char const* data, unsigned size);
  bool NextBlock(std::unique_lock<std::mutex>& lock);
  void AwaitRoom(std::unique_lock<std::mutex>& lock);
  void StartThread();
  void Work();
  std::unique_lock<std::mutex> Drain();
  bool StoreBlocks();
  bool Stored(unsigned bytes);

  unsigned Patch(unsigned char const* data, unsigned size);
  bool PatchMemory(int64 at, unsigned char const* data, unsigned& size);
  bool GatherPatch(int64 at, unsigned char const* data, unsigned size);
  bool StorePatch(int64 at, unsigned char const* data, unsigned size);
  bool StorePatches();

  bool FillGap();
  unsigned Store(int64 at, unsigned char const* data, unsigned size);
  void Report();

  IO* _target;
  unsigned const _blockSize;
  int64 _position;

  // Oldest first and without gaps; below the first one all is in the target. The last one is the
  // caller's alone, the others wait for the thread.
  std::deque<Block> _blocks;
  Block* _current;            // the last block
  std::vector<Bytes> _spare;  // memory of blocks that were stored
  std::size_t _most;          // blocks
  bool _busy = false;         // the thread is storing the first block
  bool _asleep = false;       // the thread is, and must be told of a full block
  bool _stop = false;
  std::mutex _mutex;               // of the list of blocks and what stands above
  std::condition_variable _full;   // for the thread: a block is, or it shall stop
  std::condition_variable _rests;  // for the caller: the thread has stored a block
  std::thread _thread;

  std::vector<Run> _patches;  // of stored data, not yet in the target
  std::size_t _patchBytes = 0;
  int64 _patchFloor = 0;  // below it patches were gathered, and must be from now on
  int64 _targetPosition;  // spares the target a seek per block

  std::atomic<bool> _failed{false};
  std::atomic<int> _error{0};
  std::atomic<unsigned> _untold{0};  // failed writes that "func_error" has not been told
  FuncIO _onError;
  uint64 _waits = 0, _waited_us = 0;
};

}  // namespace kestro::base
