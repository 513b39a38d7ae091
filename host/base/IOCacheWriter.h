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

// Collects small writes into large, aligned ones and stores them in the background.
//
// Writes at the end of the stream are appended to a block in memory. The writer's thread stores
// full blocks in the target, in order, while the caller fills the next one. Only if all blocks are
// full does Write wait, or store them itself. (If blocks fill every few milliseconds, they may wait
// 10 ms for the thread, which saves waking it for each.) For Write never to wait when the storage
// device stalls:
//
//   blocks >= ceil((bytes per second * longest stall in seconds + burst) / bytes of a block) + 1
//
// where the burst is the amount that arrives at once on top of that rate, at least the largest
// packet.
//
// A write before the end is a patch. It is applied in memory if the block is still there. Otherwise
// it is collected with its neighbours and stored after all data by the next Flush, or earlier if
// too many are collected. Size, Tell and Seek(0, kEnd) include bytes that are still in memory.
//
// Flush returns when everything has been written to the target, but does not flush the target: the
// data then survives a crash of this process's code, not of the machine. The destructor flushes.
//
// Errors are latched. A failed write is reported through "func_error" on the caller's thread:
// immediately if the caller was waiting for it, otherwise by its next call, at the latest by Flush
// or the destructor. From then on, appends fail. Data stored earlier remains good: GoodEnd is its
// end, and patches before it still work. Truncate, to any position up to the end, clears the error:
// it first tries again to store what is still in memory, including patches.
//
// Call the writer from one thread. Do not use the target while the writer exists: the writer's
// thread may use it at any time, except between a Flush and the next Write.
//
// Parameters:
//   "func_error"  FuncIO: called with this writer for every failed write to the target; its result
//                 is ignored
//   "blocks"      maximum number of blocks in memory; can be raised at any time
//   "waits"       how often Write had to wait for a free block (read only)
//   "waited_us"   total time of these waits in microseconds (read only)
//
// Memory is allocated as needed: at most the blocks, and 8 KiB of patches.
class KESTRO_API IOCacheWriter : public IO {
 public:
  // The target must outlive the writer. If it has a property "cacheBlocks", that is the minimum for
  // `blocks`, the maximum number of blocks in memory. `blockSize` is in bytes. If there is only one
  // block, the caller's thread stores it.
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
    int64 start = 0;  // position in the stream
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

  // Oldest first, without gaps; everything before the first block is in the target. The last block
  // is used only by the caller, the others wait for the thread.
  std::deque<Block> _blocks;
  Block* _current;            // the last block
  std::vector<Bytes> _spare;  // memory of stored blocks, for reuse
  std::size_t _maxBlocks;
  bool _busy = false;    // the thread is storing the first block
  bool _asleep = false;  // the thread is waiting; notify it when a block is full
  bool _stop = false;
  std::mutex _mutex;                     // guards the members above, from _blocks on
  std::condition_variable _full;         // notifies the thread: a block is full, or it must stop
  std::condition_variable _blockStored;  // notifies the caller: the thread has stored a block
  std::thread _thread;

  std::vector<Run> _patches;  // for stored data, not yet in the target
  std::size_t _patchBytes = 0;
  int64 _patchFloor = 0;  // patches before it were collected, so later ones must be too
  int64 _targetPosition;  // saves a seek for every block

  std::atomic<bool> _failed{false};
  std::atomic<int> _error{0};
  std::atomic<unsigned> _unreported{0};  // failed writes not yet reported to "func_error"
  FuncIO _onError;
  uint64 _waits = 0, _waited_us = 0;
};

}  // namespace kestro::base
