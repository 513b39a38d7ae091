// The memory that a recording takes before it is closed, its cache at most, and opening a file.
// opening
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

// Fills the blocks of a caching writer and what else it gathers, and prints by how much, in KiB,
// the process's resident memory has risen.
void WriterChild(int blocks, std::FILE* out);

// Opens a file the way of the opener with this number and prints by how much, in KiB, the process's
// resident memory has risen at its peak.
void OpenChild(std::string const& path, std::size_t opener, std::FILE* out);

// Runs these in processes of their own, through "--memory-child PACKETS SECONDS", "--writer-child
// BLOCKS" and "--open-child PATH OPENER" of this program, and prints the tables.
std::vector<Result> MeasureMemory(std::string const& plugin, std::FILE* out);

}  // namespace kestro::bench
