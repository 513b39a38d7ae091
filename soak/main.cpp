// kestro-soak HOURS [SEED]: records hours of a camera's packets as fast as it goes, to a file
// system of 64 MiB in memory, and checks every file, the space, the memory and the open files.
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "soak/Soak.h"
#include "support/Quiet.h"

int main(int argc, char** argv) {
  auto const number = [&](int at) {
    return argc > at ? static_cast<unsigned>(std::strtoul(argv[at], nullptr, 10)) : 0;
  };
  std::FILE* const out = fdopen(dup(1), "w");
  if (out == nullptr || number(1) == 0 || !kestro::test::Quiet()) {
    std::fprintf(stderr, "usage: kestro-soak HOURS [SEED]\n");
    return 2;
  }
  if (!kestro::test::SmallCard::Possible()) {
    std::fprintf(stderr, "kestro-soak: a file system cannot be mounted here\n");
    return 77;  // what test runners take for "skipped"
  }
  mallopt(M_ARENA_MAX, 1);  // otherwise each new thread may take more memory from the system
  kestro::soak::Soak soak(number(2), out);
  return soak.Run(number(1)) ? 0 : 1;
}
