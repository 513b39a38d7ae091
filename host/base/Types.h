// Fixed names for the integers of the host's interfaces, and the export macro.
#pragma once

#include <cstddef>
#include <cstdint>

// Only names marked with it are visible to plug-ins and applications.
#define KESTRO_API __attribute__((visibility("default")))

namespace kestro::base {

using int64 = long long;
using uint64 = unsigned long long;

}  // namespace kestro::base
