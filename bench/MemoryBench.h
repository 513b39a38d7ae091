// The memory that a recording takes before it is closed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "Bench.h"

namespace kestro::bench {

// Records so many tiny packets and prints the process's resident memory, in KiB, just before the
// file is closed. With `spillSeconds` ≥ 0 the index is spilled to a temporary folder.
void MemoryChild(std::int64_t packets, int spillSeconds, std::FILE* out);

// Runs MemoryChild in processes of their own, through "--memory-child PACKETS SECONDS" of this
// program, and prints the table.
std::vector<Result> MeasureMemory(std::string const& plugin, std::FILE* out);

}  // namespace kestro::bench
