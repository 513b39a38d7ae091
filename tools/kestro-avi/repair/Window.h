// Reads a part of a file as if it were a file.
#pragma once

#include <algorithm>
#include <memory>

#include "base/IO.h"

namespace kestro::tool {

class Window : public base::IOFilter {
 public:
  using int64 = base::int64;

  Window(std::unique_ptr<base::IO> file, int64 at, int64 size)
      : IOFilter("Window", *file), _file(std::move(file)), _at(at), _size(size) {}

  int64 Size() override { return _size; }
  int64 Tell() override { return _file->Tell() - _at; }
  bool Seek(int64 offset, int whence) override {
    int64 target = 0;
    return base::SeekTarget(*this, offset, whence, target) &&
           _file->Seek(_at + target, base::IO::kBegin);
  }
  unsigned Read(void* data, unsigned size) override {
    int64 const left = _size - Tell();
    return left <= 0 ? 0 : _file->Read(data, static_cast<unsigned>(std::min<int64>(size, left)));
  }
  unsigned Write(void const*, unsigned) override { return 0; }

 private:
  std::unique_ptr<base::IO> const _file;
  int64 const _at, _size;
};

}  // namespace kestro::tool
