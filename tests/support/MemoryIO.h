// A growing stream in memory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "base/IO.h"

namespace kestro::test {

// A new folder for a test; tests run in parallel.
inline std::string NewFolder() {
  std::string name = testing::TempDir() + "kestro-XXXXXX";
  return mkdtemp(name.data()) != nullptr ? name : "";
}

inline std::string FileText(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;  // faster than iterators where tests are not optimised
  text << file.rdbuf();
  return text.str();
}

class MemoryIO : public base::IO {
 public:
  explicit MemoryIO(std::string const& content = {})
      : IO("MemoryIO"), bytes(content.begin(), content.end()) {}

  base::int64 Size() override { return static_cast<base::int64>(bytes.size()); }
  base::int64 Tell() override { return position; }
  bool Seek(base::int64 offset, int whence) override {
    return base::SeekTarget(*this, offset, whence, position);
  }
  unsigned Read(void* data, unsigned size) override {
    if (position >= Size()) return 0;
    auto const part =
        std::min<std::size_t>(size, bytes.size() - static_cast<std::size_t>(position));
    if (part > 0) std::memcpy(data, bytes.data() + position, part);
    position += static_cast<base::int64>(part);
    return static_cast<unsigned>(part);
  }
  unsigned Write(void const* data, unsigned size) override {
    auto const end = static_cast<std::size_t>(position) + size;
    if (bytes.size() < end) bytes.resize(end);
    if (size > 0) std::memcpy(bytes.data() + position, data, size);
    position += size;
    return size;
  }
  bool Truncate(base::int64 size) override {
    bytes.resize(static_cast<std::size_t>(size));
    return true;
  }

  std::vector<unsigned char> bytes;
  base::int64 position = 0;
};

inline std::string Text(MemoryIO const& io) { return {io.bytes.begin(), io.bytes.end()}; }

}  // namespace kestro::test
