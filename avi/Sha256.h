// SHA-256, computed by libcrypto.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace kestro::avi {

class Sha256 {
 public:
  // Throws Error when libcrypto cannot be loaded. It is loaded once per process and only for this,
  // so that programs which do not hash anything need not install it.
  Sha256();
  void Add(void const* data, std::size_t size);
  // The hash of what was added, as hexadecimal digits. The next Add starts a new one.
  std::string Text();

 private:
  std::unique_ptr<void, void (*)(void*)> _state;
};

}  // namespace kestro::avi
