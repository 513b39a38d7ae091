// The caching writer, registered as "io-cache-writer".
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "base/IO.h"

namespace kestro::base {

using FuncIO = std::function<bool(IO*)>;

// Gathers small writes into large, aligned ones.
//
// Writes at the end are appended to a block of memory that goes to the target when it is full; a
// write below the end is a patch: applied in memory where the block still has it, otherwise
// gathered with its neighbours and stored in the target by the next Flush. Size, Tell and Seek(0,
// kEnd) count bytes still in memory.
//
// Flush hands everything to the target and no further: the data then survives a crash of this
// process's code, not of the machine. Destruction flushes.
//
// Errors are latched. A failed write is remembered and told through "func_error" on the thread of
// the call that met it; from then on appends fail. What was stored before stays good: GoodEnd is
// its end, and patches below it still work. Truncate makes the writer go on, from any point up to
// the end: it first stores what is still in memory, patches too, once more.
//
// Parameters: "func_error" (FuncIO: called with this writer for every failed write to the target;
// its result is not used).
class KESTRO_API IOCacheWriter : public IO {
 public:
  // The target outlives the writer. The arguments are the bytes of a block and how many blocks may
  // be held; blocks are stored by the caller's thread as they fill, so one is enough.
  IOCacheWriter(IO* target, int blockSize, int blocks);
  ~IOCacheWriter() override;

  int64 Size() override { return _blockStart + _fill; }
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;
  bool Flush() override;
  int Handle() override { return _target->Handle(); }
  int64 GoodEnd() override { return _failed ? _blockStart : Size(); }
  bool Truncate(int64 size) override;
  int Error() override { return _error; }

  static PropertyList Properties();

 private:
  unsigned Append(unsigned char const* data, unsigned size);
  unsigned Patch(unsigned char const* data, unsigned size);
  bool GatherPatch(unsigned char const* data, unsigned size);
  bool StorePatches();
  bool FillGap();
  unsigned Store(int64 at, unsigned char const* data, unsigned size);
  bool StoreBlock();

  IO* _target;
  unsigned const _blockSize;
  std::unique_ptr<unsigned char[]> _block;
  int64 _blockStart;   // where the block belongs in the stream; below it all is in the target
  unsigned _fill = 0;  // bytes in the block
  struct Run {
    int64 start;
    std::vector<unsigned char> bytes;
  };
  std::vector<Run> _patches;  // of stored data, not yet in the target
  int64 _position;
  int64 _targetPosition;  // spares the target a seek per block
  bool _failed = false;
  int _error = 0;
  FuncIO _onError;
};

}  // namespace kestro::base
