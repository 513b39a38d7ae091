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
  std::printf("%s maxsize %d\n", _name, static_cast<int>(_recordSize * _capacity));
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
    // The list holds what was read back: the file starts anew.
    _writing = true;
    _spilled = 0;
    File::Seek(_file, 0, File::kBegin);
    File::Truncate(_file, 0);
  }
  if (!Append()) return false;
  _list->clear();
  return true;
}

// Writes the list behind the records in the file; a partly written batch is cut off again.
bool IListFile::Append() {
  auto const bytes = static_cast<unsigned>(_recordSize * _list->size());
  if (File::Write(_file, _list->data(), bytes) == bytes) {
    _spilled += _list->size();
    return true;
  }
  auto const whole = static_cast<int64>(_spilled) * _recordSize;
  File::Truncate(_file, whole);
  File::Seek(_file, whole, File::kBegin);
  return false;
}

bool IListFile::ReadTmpFile() {
  if (_file == nullptr || _list == nullptr) return false;
  if (!_writing && _list->size() >= _spilled) return true;  // they are all here still

  std::vector<ChunkParam> const tail = *_list;
  std::size_t const before = _spilled;
  if (_writing) {
    Append();
    File::Flush(_file);
    _writing = false;
  }
  std::size_t const wanted = before + tail.size();
  _list->reserve(wanted + 1);
  std::size_t read = ReadRecords(_spilled);
  if (read < _spilled) read = ReadRecords(_spilled);  // the fault may have passed
  // What the file did not give is taken from memory, where memory has it.
  auto const known = std::min(read > before ? read - before : 0, tail.size());
  _list->insert(_list->end(), tail.begin() + static_cast<std::ptrdiff_t>(known), tail.end());
  _lost = _list->size() < wanted;
  return !_lost;
}

// Replaces the list with the first records of the file; returns how many there were.
std::size_t IListFile::ReadRecords(std::size_t count) {
  constexpr std::size_t kPiece = 65536;  // records a read
  _list->resize(count);
  File::Seek(_file, 0, File::kBegin);
  std::size_t done = 0;
  while (done < count) {
    auto const bytes = static_cast<unsigned>(std::min(count - done, kPiece) * _recordSize);
    unsigned const got = File::Read(_file, _list->data() + done, bytes);
    if (got != IO::kFailed) done += got / _recordSize;
    if (got != bytes) break;
  }
  _list->resize(done);
  return done;
}

}  // namespace kestro::plugin::avi
