#include "base/IOCacheWriter.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <system_error>

#include "base/IClass.h"

namespace kestro::base {

using Lock = std::unique_lock<std::mutex>;
using Clock = std::chrono::steady_clock;

static constexpr unsigned kPatchBytes = 1 << 13;  // collected at most
static constexpr std::size_t kPatchPlaces = 16;
static constexpr std::chrono::milliseconds kLinger{10}, kQuick{1};

static std::size_t BlockCount(IO& target, int blocks) {
  int wanted = 0;
  if (!target.Get("cacheBlocks", wanted)) wanted = 0;
  return static_cast<std::size_t>(std::max({blocks, wanted, 1}));
}

IOCacheWriter::IOCacheWriter(IO* target, int blockSize, int blocks)
    : IO("io-cache-writer"),
      _target(target),
      _blockSize(static_cast<unsigned>(std::max(blockSize, 1))),
      _position(target->Tell()),
      _blocks(1),
      _current(&_blocks.back()),
      _maxBlocks(BlockCount(*target, blocks)),
      _targetPosition(_position) {
  _current->start = std::max<int64>(target->Size(), 0);
}

IOCacheWriter::~IOCacheWriter() {
  IOCacheWriter::Flush();
  if (!_thread.joinable()) return;
  {
    std::lock_guard lock(_mutex);
    _stop = true;
  }
  _full.notify_one();
  _thread.join();
}

bool IOCacheWriter::Seek(int64 offset, int whence) {
  return SeekTarget(*this, offset, whence, _position);
}

unsigned IOCacheWriter::Read(void* data, unsigned size) {
  if (!Flush() || !_target->Seek(_position, kBegin)) return kFailed;
  unsigned const got = _target->Read(data, size);
  _targetPosition = -1;
  if (got != kFailed) _position += got;
  return got;
}

unsigned IOCacheWriter::Write(void const* data, unsigned size) {
  Report();
  if (size == 0) return 0;
  auto const* bytes = static_cast<unsigned char const*>(data);
  unsigned done = 0;
  if (_position > Size() && !FillGap()) return 0;
  if (_position < Size()) {
    auto const below = static_cast<unsigned>(std::min<int64>(size, Size() - _position));
    done = Patch(bytes, below);
    _position += done;
    if (done < below) return done;
  }
  unsigned const appended = Append(bytes + done, size - done);
  _position += appended;
  return done + appended;
}

unsigned IOCacheWriter::Append(unsigned char const* data, unsigned size) {
  unsigned done = 0;
  while (done < size && !_failed) {
    // The first block after a flush is shorter, so that the writes after it are aligned again.
    auto const capacity = static_cast<unsigned>(_blockSize - _current->start % _blockSize);
    if (_current->fill == capacity) {
      if (Lock lock(_mutex); !NextBlock(lock)) AwaitRoom(lock);
      continue;
    }
    if (!_current->bytes) _current->bytes.reset(new (std::nothrow) unsigned char[_blockSize]);
    if (!_current->bytes) {
      _error = ENOMEM;
      _failed = true;
      ++_unreported;
      break;
    }
    unsigned const part = std::min(size - done, capacity - _current->fill);
    std::memcpy(_current->bytes.get() + _current->fill, data + done, part);
    _current->fill += part;
    done += part;
    if (_current->fill == capacity) {
      Lock lock(_mutex);
      NextBlock(lock);
    }
  }
  Report();
  return done;
}

// Hands the full block to the thread and starts the next one. It then releases the lock, so that
// the thread finds it free. Returns false if no block is free.
bool IOCacheWriter::NextBlock(Lock& lock) {
  if (_maxBlocks > 1 && !_thread.joinable()) StartThread();
  if (_maxBlocks == 1) return StoreBlocks();
  if (_failed || _blocks.size() >= _maxBlocks) return false;
  int64 const end = _current->End();
  _blocks.emplace_back();
  _current = &_blocks.back();
  _current->start = end;
  if (!_spare.empty()) {
    _current->bytes = std::move(_spare.back());
    _spare.pop_back();
  }
  bool const wake = _asleep;
  lock.unlock();
  if (wake) _full.notify_one();
  return true;
}

void IOCacheWriter::AwaitRoom(Lock& lock) {
  if (_maxBlocks == 1) return;
  auto const begin = Clock::now();
  if (_busy)
    _blockStored.wait(lock, [this] { return _failed || _blocks.size() < _maxBlocks; });
  else
    StoreBlocks();
  auto const waited = Clock::now() - begin;
  ++_waits;
  _waited_us +=
      static_cast<uint64>(std::chrono::duration_cast<std::chrono::microseconds>(waited).count());
}

// If no thread can be started, the caller stores its blocks itself.
void IOCacheWriter::StartThread() {
  try {
    _thread = std::thread([this] { Work(); });
  } catch (std::system_error const&) {
    _maxBlocks = 1;
  }
}

// Waking a thread for a block costs as much as copying the block. While blocks fill quickly and the
// target stores them as quickly, the thread therefore polls instead. If the caller fills all blocks
// in the meantime, it stores them itself.
void IOCacheWriter::Work() {
  Lock lock(_mutex);
  auto last = Clock::now() - kLinger;
  while (!_stop) {
    if (_blocks.size() == 1 || _failed) {
      _asleep = true;
      _full.wait(lock);
      _asleep = false;
      continue;
    }
    Block const& block = _blocks.front();
    _busy = true;
    lock.unlock();
    auto const begin = Clock::now();
    unsigned const stored = Store(block.start, block.bytes.get(), block.fill);
    auto const end = Clock::now();
    lock.lock();
    _busy = false;
    Stored(stored);
    _blockStored.notify_one();
    if (begin - last < kLinger && end - begin < kQuick)
      _full.wait_until(lock, end + kLinger, [this] { return _stop; });
    last = end;
  }
}

// Removes the stored bytes from the first block. Returns false if the block has bytes left.
bool IOCacheWriter::Stored(unsigned bytes) {
  Block& block = _blocks.front();
  block.start += bytes;
  block.fill -= bytes;
  // Move the bytes that could not be stored to the front of the block.
  if (block.fill > 0) std::memmove(block.bytes.get(), block.bytes.get() + bytes, block.fill);
  if (block.fill > 0) return false;
  if (_blocks.size() > 1) {
    _spare.push_back(std::move(block.bytes));
    _blocks.pop_front();
  }
  return true;
}

// Waits until the thread is idle. It stays idle until the caller releases the lock.
Lock IOCacheWriter::Drain() {
  Lock lock(_mutex);
  _blockStored.wait(lock, [this] { return !_busy; });
  return lock;
}

// Called on the caller's thread, with the lock held and the writer's thread idle.
bool IOCacheWriter::StoreBlocks() {
  for (;;) {
    Block const& block = _blocks.front();
    bool const last = _blocks.size() == 1;
    if (!Stored(Store(block.start, block.bytes.get(), block.fill))) return false;
    if (last) return true;
  }
}

unsigned IOCacheWriter::Patch(unsigned char const* data, unsigned size) {
  unsigned done = 0;
  while (done < size) {
    unsigned part = size - done;
    int64 const at = _position + done;
    if (!PatchMemory(at, data + done, part) && !GatherPatch(at, data + done, part)) break;
    done += part;
  }
  return done;
}

// Applies the part of a patch that lies in one block. Returns false if the data is in the target
// already, or being written to it; `size` is then the part before the blocks.
bool IOCacheWriter::PatchMemory(int64 at, unsigned char const* data, unsigned& size) {
  Lock lock(_mutex, std::defer_lock);
  Block* block = _current;
  if (at < _current->start) {
    lock.lock();
    _patchFloor = std::max(_patchFloor, _blocks[_busy ? 1 : 0].start);
    if (at < _patchFloor) {
      size = static_cast<unsigned>(std::min<int64>(size, _patchFloor - at));
      return false;
    }
    block = &*std::find_if(_blocks.begin(), _blocks.end(),
                           [at](Block const& b) { return at < b.End(); });
  }
  size = static_cast<unsigned>(std::min<int64>(size, block->End() - at));
  std::memcpy(block->bytes.get() + (at - block->start), data, size);
  return true;
}

// Small patches of the same place, such as the fields of a header, are stored together.
bool IOCacheWriter::GatherPatch(int64 at, unsigned char const* data, unsigned size) {
  auto const touches = [at](Run const& run) {
    return at >= run.start && at <= run.start + static_cast<int64>(run.bytes.size());
  };
  bool more = _patches.empty() || !touches(_patches.back());
  if (_patchBytes + size > kPatchBytes || (more && _patches.size() >= kPatchPlaces)) {
    auto const lock = Drain();
    if (!StorePatches()) return false;
    if (size > kPatchBytes) return StorePatch(at, data, size);
    more = true;
  }
  if (more) _patches.push_back({at, {}});
  Run& run = _patches.back();
  auto const offset = static_cast<std::size_t>(at - run.start);
  if (run.bytes.size() < offset + size) {
    _patchBytes += offset + size - run.bytes.size();
    run.bytes.resize(offset + size);
  }
  std::memcpy(run.bytes.data() + offset, data, size);
  return true;
}

// Never overwrites data that is still in memory after a failure: storing that data later would undo
// the patch.
bool IOCacheWriter::StorePatch(int64 at, unsigned char const* data, unsigned size) {
  return size == 0 || (at + size <= _blocks.front().start && Store(at, data, size) == size);
}

// Stores patches in the order they were made. The first that fails and those after it are kept.
// Called with the writer's thread idle.
bool IOCacheWriter::StorePatches() {
  auto run = _patches.begin();
  for (; run != _patches.end(); ++run) {
    auto const size = static_cast<unsigned>(run->bytes.size());
    if (!StorePatch(run->start, run->bytes.data(), size)) break;
    _patchBytes -= size;
  }
  _patches.erase(_patches.begin(), run);
  return _patches.empty();
}

bool IOCacheWriter::FillGap() {
  static unsigned char const zeros[4096] = {};
  while (_position > Size()) {
    auto const part = static_cast<unsigned>(std::min<int64>(sizeof zeros, _position - Size()));
    if (Append(zeros, part) != part) return false;
  }
  return true;
}

unsigned IOCacheWriter::Store(int64 at, unsigned char const* data, unsigned size) {
  if (size == 0) return 0;
  unsigned stored = 0;
  if (_targetPosition == at || _target->Seek(at, kBegin)) stored = _target->Write(data, size);
  if (stored > size) stored = 0;  // all ones, as from a failed read
  _targetPosition = stored == size ? at + stored : -1;
  if (stored == size) return stored;
  _error = _target->Error();
  _failed = true;
  ++_unreported;
  return stored;
}

void IOCacheWriter::Report() {
  if (_unreported.load(std::memory_order_relaxed) == 0) return;
  for (unsigned n = _unreported.exchange(0); n > 0; --n)
    if (_onError) _onError(this);
}

int64 IOCacheWriter::GoodEnd() {
  if (!_failed) return Size();
  std::lock_guard lock(_mutex);
  return _blocks.front().start;
}

bool IOCacheWriter::Flush() {
  bool stored;
  {
    auto const lock = Drain();
    stored = !_failed && StoreBlocks();
    stored = StorePatches() && stored;
  }
  Report();
  return stored;
}

bool IOCacheWriter::Truncate(int64 size) {
  if (size < 0 || size > Size()) return false;
  bool stored;
  {
    auto const lock = Drain();
    _failed = false;
    for (; _blocks.size() > 1 && _current->start >= size; _current = &_blocks.back())
      _blocks.pop_back();
    _current->fill =
        static_cast<unsigned>(std::clamp<int64>(size - _current->start, 0, _current->fill));
    _patchBytes = 0;
    for (Run& run : _patches) {
      run.bytes.resize(static_cast<std::size_t>(
          std::clamp<int64>(size - run.start, 0, static_cast<int64>(run.bytes.size()))));
      _patchBytes += run.bytes.size();
    }
    stored = StoreBlocks() && StorePatches();
    if (stored) {
      // If the target cannot be truncated, its tail remains, but nothing refers to it.
      static_cast<void>(_target->Truncate(size));
      _targetPosition = -1;
      _current->start = size;
      _patchFloor = 0;
    }
  }
  Report();
  return stored;
}

PropertyList IOCacheWriter::Properties() {
  using W = IOCacheWriter;
  PropertyList list;
  list.Member<W>("func_error", &W::_onError, "function called for every failed write");
  list.Add<W, unsigned>(
      "blocks", "maximum number of blocks in memory; can be raised",
      [](W& w, unsigned& blocks) {
        std::lock_guard lock(w._mutex);
        blocks = static_cast<unsigned>(w._maxBlocks);
        return true;
      },
      [](W& w, unsigned const& blocks) {
        std::lock_guard lock(w._mutex);
        if (blocks < w._maxBlocks) return false;
        w._maxBlocks = blocks;
        return true;
      });
  list.Add<W, uint64>(
      "waits", "how often a write had to wait for a free block",
      [](W& w, uint64& waits) {
        waits = w._waits;
        return true;
      },
      nullptr);
  list.Add<W, uint64>(
      "waited_us", "total waiting time in microseconds",
      [](W& w, uint64& waited_us) {
        waited_us = w._waited_us;
        return true;
      },
      nullptr);
  return list;
}

namespace {
[[maybe_unused]] bool const registered = [] {
  auto record = std::make_unique<IClass>("io-cache-writer", IOCacheWriter::Properties());
  record->Constructor<IOCacheWriter, IO*, int, int>();
  IClass* entered = IClass::Register(std::move(record));
  if (entered != nullptr) entered->Init("kestro", 0x10001, "Orvane", "host");
  return entered != nullptr;
}();
}  // namespace

}  // namespace kestro::base
