#include "base/IOCacheReader.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <system_error>

#include "base/IClass.h"

namespace kestro::base {

IOCacheReader::IOCacheReader(IO* source, int blockSize, int blocks, int64 preloadBytes)
    : IO("io-cache-reader"),
      _source(source),
      _blockSize(static_cast<unsigned>(std::max(blockSize, 1))),
      _limit(std::max(blocks, 1)),
      _maxAhead(blocks == 0 ? -1 : _limit - 1 - (_limit - 1) / 4),
      _size(source->Size()),
      _handle(source->Handle()),
      _position(source->Tell()),
      _end(_size < 0 ? INT64_MAX : _size),
      _preloadBytes(std::max<int64>(preloadBytes, 0)) {
  if (Threadless()) return;
  try {
    _thread = std::thread([this] { Run(); });
  } catch (std::system_error const& e) {
    _error = e.code().value();
  }
}

IOCacheReader::~IOCacheReader() {
  {
    std::lock_guard lock(_mutex);
    _stop = true;
  }
  _work.notify_one();
  if (_thread.joinable()) _thread.join();
}

bool IOCacheReader::Configure(AttrSet& attrs) { return Working() && IO::Configure(attrs); }

bool IOCacheReader::Seek(int64 offset, int whence) {
  return SeekTarget(*this, offset, whence, _position);
}

unsigned IOCacheReader::Read(void* data, unsigned size) {
  if (!Working()) return kFailed;
  auto* out = static_cast<unsigned char*>(data);
  unsigned done = 0;
  Lock lock(_mutex);
  while (done < size && done < _end - _position) {
    int64 const at = _position + done;
    auto const offset = static_cast<unsigned>(at % _blockSize);
    unsigned part = std::min(size - done, _blockSize - offset);
    Block const& block = Await(lock, at / _blockSize);
    if (block.fill == kFailed) {
      part = ReadAround(lock, at, out + done, part);
      if (part == kFailed && done == 0) return kFailed;
    } else {
      part = std::min(part, block.fill - std::min(offset, block.fill));
      std::memcpy(out + done, block.bytes.get() + offset, part);
    }
    if (part == 0 || part == kFailed) break;
    done += part;
  }
  _position += done;
  return done;
}

// The block is not removed while the reader is in it.
IOCacheReader::Block const& IOCacheReader::Await(Lock& lock, int64 block) {
  MoveTo(block);
  _waiting = true;
  if (!Threadless())
    _fetched.wait(lock, [this, block] { return Has(block); });
  else if (!Has(block))
    FetchBlock(lock, block);
  _waiting = false;
  return _blocks.find(block)->second;
}

void IOCacheReader::MoveTo(int64 block) {
  if (block == _at) return;
  if (block == _at + 1 || (block > _at && Has(block)))
    _ahead = std::min(std::max<int64>(2 * _ahead, 1), std::max<int64>(_maxAhead, 0));
  else if (!Has(block))
    _ahead = std::clamp<int64>(_maxAhead, 0, 1);
  _at = block;
  _work.notify_one();
}

unsigned IOCacheReader::ReadAround(Lock& lock, int64 at, unsigned char* data, unsigned size) {
  if (Threadless()) return Fetch(lock, at, data, size);
  Request request{at, data, size, 0};
  _request = &request;
  _work.notify_one();
  _fetched.wait(lock, [this] { return _request == nullptr; });
  return request.got;
}

int IOCacheReader::Error() {
  std::lock_guard lock(_mutex);
  return _error;
}

bool IOCacheReader::Preload(bool on) {
  std::lock_guard lock(_mutex);
  if (_preload != on) _preloadNext = 0;
  _preload = on;
  Trim(_limit);
  _work.notify_one();
  return true;
}

bool IOCacheReader::Preload() {
  std::lock_guard lock(_mutex);
  return _preload;
}

int64 IOCacheReader::Preloaded() {
  std::lock_guard lock(_mutex);
  return _preload ? std::min({_preloadNext * _blockSize, _preloadBytes, _end}) : 0;
}

int64 IOCacheReader::PreloadBlocks() const {
  int64 const bytes = _preload ? std::min(_preloadBytes, _end) : 0;
  return bytes / _blockSize + (bytes % _blockSize != 0);
}

void IOCacheReader::Run() {
  Lock lock(_mutex);
  while (!_stop) {
    int64 block;
    if (_request != nullptr) {
      _request->got = Fetch(lock, _request->at, _request->data, _request->size);
      _request = nullptr;
      _fetched.notify_one();
    } else if ((block = NextBlock()) >= 0) {
      FetchBlock(lock, block);
    } else {
      _work.wait(lock);
    }
  }
}

// Returns the block to fetch next: the one that the reader waits for, then blocks ahead of it, then
// blocks of the preload. -1 if there is none.
int64 IOCacheReader::NextBlock() {
  if (_waiting && !Has(_at)) return _at;
  for (int64 block = _at + 1; block <= _at + _ahead && block <= (_end - 1) / _blockSize; ++block)
    if (!Has(block)) return block;
  for (int64 const end = PreloadBlocks(); _preloadNext < end; ++_preloadNext)
    if (!Has(_preloadNext)) return _preloadNext;
  return -1;
}

void IOCacheReader::FetchBlock(Lock& lock, int64 block) {
  bool const kept = block < PreloadBlocks();
  Bytes bytes = kept ? nullptr : Trim(_limit - 1);
  if (bytes == nullptr) bytes.reset(new (std::nothrow) unsigned char[_blockSize]);
  int64 const start = block * _blockSize;
  unsigned got = kFailed;
  if (bytes != nullptr)
    got = Fetch(lock, start, bytes.get(), _blockSize);
  else if (kept)
    _preloadBytes = start;  // out of memory: end the preload here
  // A read of 0 bytes means that the stream ends early. A short read means an error after these
  // bytes: the block counts as failed, and the bytes are read again when they are needed.
  if (got > 0 && got < _blockSize && start + got < _end) got = kFailed;
  if (got == kFailed) bytes.reset();
  if (got < _blockSize) _end = std::min(_end, start + got);
  _blocks[block] = {std::move(bytes), got};
  Trim(_limit);
  _fetched.notify_one();
}

unsigned IOCacheReader::Fetch(Lock& lock, int64 at, unsigned char* data, unsigned size) {
  lock.unlock();
  bool const sought = _source->Seek(at, kBegin);
  unsigned const got = sought ? _source->Read(data, size) : kFailed;
  int const error = got > size ? _source->Error() : 0;
  lock.lock();
  if (got <= size) return got;
  _error = error;
  return kFailed;
}

// Removes blocks until at most `blocks` are left outside the preload: each time the first one, or
// the last one if it is beyond the read-ahead and at least as far from the reader. Returns the
// memory of a removed block, or null.
IOCacheReader::Bytes IOCacheReader::Trim(int64 blocks) {
  Bytes freed;
  for (;;) {
    auto const low = _blocks.lower_bound(PreloadBlocks());
    if (std::distance(low, _blocks.end()) <= blocks) return freed;
    auto const high = std::prev(_blocks.end());
    bool const removeLow = high->first <= _at + _ahead || _at - low->first > high->first - _at;
    auto const removed = removeLow ? low : high;
    freed = std::move(removed->second.bytes);
    _blocks.erase(removed);
  }
}

PropertyList IOCacheReader::Properties() {
  PropertyList list;
  list.Add<IOCacheReader, bool>(
      "preload", "keep the first bytes of the stream in memory",
      [](IOCacheReader& io, bool& on) {
        on = io.Preload();
        return true;
      },
      [](IOCacheReader& io, bool const& on) { return io.Preload(on); });
  list.Getter<IOCacheReader>("preloaded", &IOCacheReader::Preloaded,
                             "bytes of the preload that are in memory");
  return list;
}

namespace {
[[maybe_unused]] bool const registered = [] {
  auto record = std::make_unique<IClass>("KestIOCacheReader-io-cache-reader-kest",
                                         IOCacheReader::Properties());
  record->Constructor<IOCacheReader, IO*, int, int, int64>();
  IClass* entered = IClass::Register(std::move(record));
  if (entered != nullptr) entered->Init("kestro", 0x10001, "Orvane", "host");
  return entered != nullptr;
}();
}  // namespace

}  // namespace kestro::base
