// What the fuzz targets share. A promise that does not hold is a failed KESTRO_ASSERT: it ends the
// process, in every build type.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/Console.h"
#include "support/Quiet.h"

namespace kestro::fuzz {

using test::Quiet;

// Takes an input apart. After its end everything is 0.
class Input {
 public:
  Input(std::uint8_t const* data, std::size_t size) : _at(data), _end(data + size) {}

  bool Empty() const { return _at == _end; }
  unsigned U8() { return Empty() ? 0 : *_at++; }
  unsigned U16() {
    unsigned const low = U8();
    return low | U8() << 8;
  }

  // Takes off the tail, whose size is in the last `lengthBytes`; so an ordinary file is an input.
  Input TakeTail(unsigned lengthBytes, std::size_t most) {
    if (Size() < lengthBytes) return {_end, 0};
    _end -= lengthBytes;
    std::size_t const size = std::min({Input(_end, lengthBytes).U16(), unsigned(most)});
    if (size > Size()) return {_end, 0};
    _end -= size;
    return {_end, size};
  }
  std::uint8_t const* begin() const { return _at; }
  std::uint8_t const* end() const { return _end; }
  std::size_t Size() const { return static_cast<std::size_t>(_end - _at); }
  std::string Text() const { return {reinterpret_cast<char const*>(_at), Size()}; }

 private:
  std::uint8_t const *_at, *_end;
};

// A folder for as long as the process lives, in memory where the system has such a place.
struct Folder {
  Folder() {
    std::error_code none;
    std::filesystem::path const memory = "/dev/shm";
    bool const usable = access(memory.c_str(), W_OK | X_OK) == 0;
    std::string pattern =
        (usable ? memory : std::filesystem::temp_directory_path(none)) / "kestro-fuzz-XXXXXX";
    char const* const made = mkdtemp(pattern.data());
    KESTRO_ASSERT(made != nullptr);
    path = made;
  }
  ~Folder() {
    std::error_code none;
    std::filesystem::remove_all(path, none);
  }
  std::string At(char const* name) const { return path / name; }
  std::filesystem::path path;
};

}  // namespace kestro::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);
