// For programs that run the plug-in many times.
#pragma once

#include <cstdio>

#include "base/Console.h"

namespace kestro::test {

// Silences the prints of host and plug-in, and standard output. False when that fails.
inline bool Quiet() {
  static struct : base::ostream {
    void Write(char const*, std::size_t) override {}
  } nowhere;
  static bool const once =
      (base::cout.Redirect(&nowhere), true) && std::freopen("/dev/null", "w", stdout) != nullptr;
  return once;
}

}  // namespace kestro::test
