// Included by every source of the mutated build. KESTRO_MUTANT(n) is true in a process whose
// environment variable KESTRO_MUTANT is n. With KESTRO_REACHED, the name of a file, it sets byte n of
// that file.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kestro::mutation {

enum { kMost = 1 << 16 };

inline char* Reached() {
  char const* path = getenv("KESTRO_REACHED");
  int const file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) return nullptr;
  void* const bytes = mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return bytes != MAP_FAILED ? static_cast<char*>(bytes) : nullptr;
}

inline bool Active(int n) {
  static char const* const chosen = getenv("KESTRO_MUTANT");
  static int const number = chosen != nullptr ? atoi(chosen) : 0;
  static char* const reached = Reached();
  if (reached != nullptr) reached[n] = 1;
  return n == number;
}

}  // namespace kestro::mutation

#define KESTRO_MUTANT(n) ::kestro::mutation::Active(n)
