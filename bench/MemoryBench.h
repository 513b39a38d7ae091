// Measures memory: of a recording before it is closed, of its write cache, and of opening a file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "Bench.h"

namespace kestro::bench {

// Records this many tiny packets and prints the process's resident memory, in KiB, just before the
// file is closed. With `spillSeconds` ≥ 0 the index is spilled to a temporary folder.
void MemoryChild(std::int64_t packets, int spillSeconds, std::FILE* out);

// Fills all buffers of a caching writer and prints by how much, in KiB, the process's resident
// memory has grown.
void WriterChild(int blocks, std::FILE* out);

// Opens a file with the opener of this number and prints by how much, in KiB, the peak of the
// process's resident memory has grown.
void OpenChild(std::string const& path, std::size_t opener, std::FILE* out);

// Runs these in separate processes, with "--memory-child PACKETS SECONDS", "--writer-child
// BLOCKS" and "--open-child PATH OPENER" of this program, and prints the tables.
std::vector<Result> MeasureMemory(std::string const& plugin, std::FILE* out);

}  // namespace kestro::bench
