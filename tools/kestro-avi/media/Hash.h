// The interface of hash functions.
#pragma once

#include <cstddef>
#include <string>

#include "base/Types.h"

namespace kestro::tool {

class KESTRO_API Hash {
 public:
  virtual ~Hash() = default;
  virtual void Add(void const* data, std::size_t size) = 0;
  // The hash of what was added, as hexadecimal digits. The next Add starts a new one.
  virtual std::string Text() = 0;
};

}  // namespace kestro::tool
