#include "base/IOCacheWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/IClass.h"

namespace kestro::base {

IOCacheWriter::IOCacheWriter(IO* target, int blockSize, int)
    : IO("io-cache-writer"),
      _target(target),
      _blockSize(static_cast<unsigned>(std::max(blockSize, 1))),
      _block(new unsigned char[_blockSize]),
      _blockStart(std::max<int64>(target->Size(), 0)),
      _position(target->Tell()),
      _targetPosition(_position) {}

IOCacheWriter::~IOCacheWriter() { Flush(); }

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
    auto const capacity = static_cast<unsigned>(_blockSize - _blockStart % _blockSize);
    unsigned const part = std::min(size - done, capacity - _fill);
    std::memcpy(_block.get() + _fill, data + done, part);
    _fill += part;
    done += part;
    if (_fill == capacity && !StoreBlock()) break;
  }
  return done;
}

unsigned IOCacheWriter::Patch(unsigned char const* data, unsigned size) {
  unsigned below = 0;
  if (_position < _blockStart) {
    below = static_cast<unsigned>(std::min<int64>(size, _blockStart - _position));
    if (!GatherPatch(data, below)) return 0;
  }
  if (below < size)
    std::memcpy(_block.get() + (_position + below - _blockStart), data + below, size - below);
  return size;
}

// Small patches of one place, such as the fields of a header, go to the target together.
bool IOCacheWriter::GatherPatch(unsigned char const* data, unsigned size) {
  auto const touches = [this, size](Run const& run) {
    int64 const at = _position - run.start;
    return at >= 0 && at <= static_cast<int64>(run.bytes.size()) && at + size <= _blockSize;
  };
  if (_patches.empty() || !touches(_patches.back())) {
    constexpr std::size_t kPlaces = 16;
    if (_patches.size() >= kPlaces && !StorePatches()) return false;
    _patches.push_back({_position, {}});
  }
  Run& run = _patches.back();
  auto const at = static_cast<std::size_t>(_position - run.start);
  if (run.bytes.size() < at + size) run.bytes.resize(at + size);
  std::memcpy(run.bytes.data() + at, data, size);
  return true;
}

// In the order in which they were made; what fails stays, with those behind it.
bool IOCacheWriter::StorePatches() {
  auto run = _patches.begin();
  for (; run != _patches.end(); ++run) {
    auto const size = static_cast<unsigned>(run->bytes.size());
    if (Store(run->start, run->bytes.data(), size) < size) break;
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
  if (stored > size) stored = 0;  // all ones, as a failed read tells it
  _targetPosition = stored == size ? at + stored : -1;
  if (stored == size) return stored;
  _failed = true;
  _error = _target->Error();
  if (_onError) _onError(this);
  return stored;
}

bool IOCacheWriter::StoreBlock() {
  unsigned const stored = Store(_blockStart, _block.get(), _fill);
  _blockStart += stored;
  _fill -= stored;
  // What could not be stored stays at the front of the block.
  if (_fill > 0) std::memmove(_block.get(), _block.get() + stored, _fill);
  return _fill == 0;
}

bool IOCacheWriter::Flush() {
  bool const stored = !_failed && StoreBlock();
  return StorePatches() && stored;
}

bool IOCacheWriter::Truncate(int64 size) {
  if (size < 0 || size > Size()) return false;
  _failed = false;
  _fill = static_cast<unsigned>(std::max<int64>(size - _blockStart, 0));
  for (Run& run : _patches)
    run.bytes.resize(static_cast<std::size_t>(
        std::clamp<int64>(size - run.start, 0, static_cast<int64>(run.bytes.size()))));
  if (!StoreBlock() || !StorePatches()) return false;
  // A target that cannot be cut keeps a tail that nothing refers to.
  _target->Truncate(size);
  _targetPosition = -1;
  _blockStart = size;
  return true;
}

PropertyList IOCacheWriter::Properties() {
  PropertyList list;
  list.Member<IOCacheWriter>("func_error", &IOCacheWriter::_onError,
                             "function told of every failed write");
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
