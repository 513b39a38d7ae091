#include "avi/Sha256.h"

#include <dlfcn.h>

#include <new>

#include "avi/Error.h"

namespace kestro::avi {

namespace {

// The functions that are used, as libcrypto has declared them since version 1.1.0.
struct Crypto {
  void* (*create)();
  void (*free)(void*);
  void const* (*sha256)();
  int (*begin)(void*, void const*, void*);
  int (*add)(void*, void const*, std::size_t);
  int (*end)(void*, unsigned char*, unsigned*);

  Crypto() {
    void* library = nullptr;
    for (char const* name : {"libcrypto.so.3", "libcrypto.so.1.1", "libcrypto.so"})
      if (library == nullptr) library = dlopen(name, RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr)
      throw Error(kIo, "libcrypto.so was not found; it is needed to compute hashes");
    Find(library, "EVP_MD_CTX_new", create);
    Find(library, "EVP_MD_CTX_free", free);
    Find(library, "EVP_sha256", sha256);
    Find(library, "EVP_DigestInit_ex", begin);
    Find(library, "EVP_DigestUpdate", add);
    Find(library, "EVP_DigestFinal_ex", end);
  }

 private:
  template <typename Function>
  static void Find(void* library, char const* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) throw Error(kIo, std::string("libcrypto.so has no ") + name);
  }
};

Crypto const& TheCrypto() {
  static Crypto const crypto;
  return crypto;
}

void Check(int done) {
  if (done != 1) throw Error(kIo, "libcrypto.so does not compute SHA-256");
}

}  // namespace

Sha256::Sha256() : _state(TheCrypto().create(), TheCrypto().free) {
  if (!_state) throw std::bad_alloc();
  Check(TheCrypto().begin(_state.get(), TheCrypto().sha256(), nullptr));
}

void Sha256::Add(void const* data, std::size_t size) {
  Check(TheCrypto().add(_state.get(), data, size));
}

std::string Sha256::Text() {
  static constexpr char kDigits[] = "0123456789abcdef";
  unsigned char digest[32];
  Check(TheCrypto().end(_state.get(), digest, nullptr));
  Check(TheCrypto().begin(_state.get(), TheCrypto().sha256(), nullptr));
  std::string text;
  for (unsigned char const byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace kestro::avi
