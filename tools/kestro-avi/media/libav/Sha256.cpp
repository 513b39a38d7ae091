#include "media/libav/Sha256.h"

#include <new>

namespace kestro::tool {

static constexpr int kBits = 256;

Sha256::Sha256() : _state(av_sha_alloc()) {
  if (!_state) throw std::bad_alloc();
  av_sha_init(_state.get(), kBits);
}

void Sha256::Add(void const* data, std::size_t size) {
  av_sha_update(_state.get(), static_cast<std::uint8_t const*>(data), size);
}

std::string Sha256::Text() {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::uint8_t digest[kBits / 8];
  av_sha_final(_state.get(), digest);
  av_sha_init(_state.get(), kBits);
  std::string text;
  for (std::uint8_t const byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace kestro::tool
