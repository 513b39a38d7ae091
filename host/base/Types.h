// Fixed names for the integers that cross the host's interfaces, and the export mark.
#pragma once

#include <cstddef>
#include <cstdint>

// Everything marked is visible to plug-ins and applications; the rest of the library is hidden.
#define KESTRO_API __attribute__((visibility("default")))

namespace kestro::base {

using int64 = long long;
using uint64 = unsigned long long;

}  // namespace kestro::base
