#include "stream/IIO.h"

#include <cstring>

namespace kestro::stream {

bool IIO::Open(char const* mode) {
  bool const writing = std::strchr(mode, 'w') != nullptr;
  Close();
  _why.clear();
  if (_lent != nullptr) {
    if (writing && !_lent->Truncate(0) && _lent->Size() > 0) _why = "the stream cannot be emptied";
    if (!_lent->Seek(0, base::IO::kBegin)) _why = "the stream cannot be rewound";
    _io = _why.empty() ? _lent : nullptr;
    return _io != nullptr;
  }
  _file = std::make_unique<base::FileIO>(_path.c_str(), mode);
  if (!_file->Opened()) {
    _why = _path + ": " + std::strerror(_file->Error());
    _file.reset();
    return false;
  }
  _io = _file.get();
  return true;
}

void IIO::Cover(std::unique_ptr<base::IO> cover) {
  _cover = std::move(cover);
  _io = _cover.get();
  _coveredPath = _path;
  _coveredLent = _lent;
}

bool IIO::Covered() const {
  return _cover != nullptr && _lent == _coveredLent && (_lent != nullptr || _path == _coveredPath);
}

bool IIO::Close() {
  _io = nullptr;
  _cover.reset();
  if (_file == nullptr) return true;
  bool const ok = _file->Close();
  if (!ok) _why = _path + ": " + std::strerror(_file->Error());
  _file.reset();
  return ok;
}

}  // namespace kestro::stream
