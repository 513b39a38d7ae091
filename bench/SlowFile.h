// A file that behaves as on a slow device.
#pragma once

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "base/File.h"

namespace kestro::bench {

class SlowFile : public base::IOFilter {
 public:
  struct Delays {
    std::chrono::milliseconds read{0}, flush{0};
    std::chrono::milliseconds stall{0};  // for a write that crosses a multiple of kStride bytes
    int blocks = 0;                      // requested size of the write cache; 0: none requested
  };
  static constexpr base::int64 kStride = 4 << 20;

  SlowFile(std::string const& path, char const* mode, Delays const& delays)
      : SlowFile(std::make_unique<base::FileIO>(path.c_str(), mode), delays) {}

  bool Opened() const { return _file->Opened(); }
  base::int64 Written() const { return _written; }

  using IOFilter::Get;
  bool Get(char const* name, void* value, std::type_info const* type) override {
    if (_delays.blocks == 0 || std::strcmp(name, "cacheBlocks") != 0 || *type != typeid(int))
      return IOFilter::Get(name, value, type);
    *static_cast<int*>(value) = _delays.blocks;
    return true;
  }
  unsigned Read(void* data, unsigned size) override {
    Sleep(_delays.read);
    return _io.Read(data, size);
  }
  unsigned Write(void const* data, unsigned size) override {
    base::int64 const before = _written;
    _written += size;
    if (before / kStride != _written / kStride) Sleep(_delays.stall);
    return _io.Write(data, size);
  }
  bool Flush() override {
    Sleep(_delays.flush);
    return _io.Flush();
  }

 private:
  SlowFile(std::unique_ptr<base::FileIO> file, Delays const& delays)
      : IOFilter("SlowFile", *file), _file(std::move(file)), _delays(delays) {}
  static void Sleep(std::chrono::milliseconds time) {
    if (time.count() > 0) std::this_thread::sleep_for(time);
  }

  std::unique_ptr<base::FileIO> _file;
  Delays const _delays;
  base::int64 _written = 0;
};

}  // namespace kestro::bench
