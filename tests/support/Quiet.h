// For programs that try many things in a row.
#pragma once

#include <cstdio>

#include "base/Console.h"

namespace kestro::test {

// Silences host and plug-in, which tell much about themselves, and standard output. False when that
// cannot be closed.
inline bool Quiet() {
  static struct : base::ostream {
    void Write(char const*, std::size_t) override {}
  } nowhere;
  static bool const once =
      (base::cout.Redirect(&nowhere), true) && std::freopen("/dev/null", "w", stdout) != nullptr;
  return once;
}

}  // namespace kestro::test
