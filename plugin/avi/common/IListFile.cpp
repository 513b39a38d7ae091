#include "common/IListFile.h"

#include <algorithm>
#include <cstdio>

#include "base/Console.h"
#include "base/File.h"

namespace kestro::plugin::avi {

using base::File;

IListFile::IListFile(std::vector<ChunkParam>* list, char const* base, unsigned count)
    : _capacity(count), _list(list) {
  std::snprintf(_name, sizeof _name, "%s.kestro", base);
  std::printf("%s maxsize %d\n", _name, static_cast<int>(_entrySize * _capacity));
}

IListFile::~IListFile() {
  if (_file == nullptr) return;
  File::Close(_file);
  File::Delete(_name);
}

bool IListFile::CreateTmpFile(char const* path) {
  _file = File::Open(path, "rwbc");
  return _file != nullptr;
}

bool IListFile::ListIsFull() const {
  return _list != nullptr && _list->size() + 1 >= _list->capacity();
}

bool IListFile::WriteTmpFile() {
  if (_list == nullptr) return true;
  if (_file == nullptr && !CreateTmpFile(_name)) {
    base::ErrorLineAt("plugin/avi/common/IListFile", 31, "WriteTmpFile");
    return false;
  }
  if (!_writing) {
    // The list has everything that was read back: start the file again.
    _writing = true;
    _spilled = 0;
    File::Seek(_file, 0, File::kBegin);
    File::Truncate(_file, 0);
  }
  if (!Append()) return false;
  _list->clear();
  return true;
}

// Appends the list to the file. Cuts off a batch that was written in part.
bool IListFile::Append() {
  auto const bytes = static_cast<unsigned>(_entrySize * _list->size());
  if (File::Write(_file, _list->data(), bytes) == bytes) {
    _spilled += _list->size();
    return true;
  }
  auto const whole = static_cast<int64>(_spilled) * _entrySize;
  File::Truncate(_file, whole);
  File::Seek(_file, whole, File::kBegin);
  return false;
}

bool IListFile::ReadTmpFile() {
  if (_file == nullptr || _list == nullptr) return false;
  if (!_writing && _list->size() >= _spilled) return true;  // all are still here

  std::vector<ChunkParam> const tail = *_list;
  std::size_t const before = _spilled;
  if (_writing) {
    Append();
    File::Flush(_file);
    _writing = false;
  }
  std::size_t const wanted = before + tail.size();
  _list->reserve(wanted + 1);
  std::size_t read = ReadEntries(_spilled);
  if (read < _spilled) read = ReadEntries(_spilled);  // the fault may have passed
  // Takes what could not be read from memory, as far as memory has it.
  auto const known = std::min(read > before ? read - before : 0, tail.size());
  _list->insert(_list->end(), tail.begin() + static_cast<std::ptrdiff_t>(known), tail.end());
  _lost = _list->size() < wanted;
  return !_lost;
}

// Replaces the list with the first entries of the file. Returns how many could be read.
std::size_t IListFile::ReadEntries(std::size_t count) {
  constexpr std::size_t kPiece = 65536;  // entries per read
  _list->resize(count);
  File::Seek(_file, 0, File::kBegin);
  std::size_t done = 0;
  while (done < count) {
    auto const bytes = static_cast<unsigned>(std::min(count - done, kPiece) * _entrySize);
    unsigned const got = File::Read(_file, _list->data() + done, bytes);
    if (got != IO::kFailed) done += got / _entrySize;
    if (got != bytes) break;
  }
  _list->resize(done);
  return done;
}

}  // namespace kestro::plugin::avi
