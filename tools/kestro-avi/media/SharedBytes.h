// Bytes in memory that packets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "media/AnnexB.h"

namespace kestro::tool {

// The bytes stay in memory and unchanged as long as an object refers to them.
class SharedBytes {
 public:
  SharedBytes() = default;
  explicit SharedBytes(Bytes bytes) {
    auto const owner = std::make_shared<Bytes const>(std::move(bytes));
    *this = {owner->data(), owner->size(), owner};
  }
  // `owner` keeps the bytes in memory.
  SharedBytes(std::uint8_t const* data, std::size_t size, std::shared_ptr<void const> owner)
      : _data(data), _size(size), _owner(std::move(owner)) {}

  std::uint8_t const* data() const { return _data; }
  std::size_t size() const { return _size; }
  std::uint8_t const* begin() const { return _data; }
  std::uint8_t const* end() const { return _data + _size; }
  std::shared_ptr<void const> const& Owner() const { return _owner; }

 private:
  std::uint8_t const* _data = nullptr;
  std::size_t _size = 0;
  std::shared_ptr<void const> _owner;
};

}  // namespace kestro::tool
