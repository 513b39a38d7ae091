// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace kestro::tool {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : _number(number) {}
  Descriptor(Descriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
  }
  ~Descriptor() {
    if (_number >= 0) close(_number);
  }
  int Number() const { return _number; }  // negative: none

 private:
  int _number;
};

}  // namespace kestro::tool
