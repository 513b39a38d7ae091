// The hashes of a recording, packet by packet and as a whole.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "avi/AviFile.h"

namespace kestro::avi {

struct PacketHash {
  std::size_t track;
  std::uint64_t number, size;  // the number counts from 0 in each track
  std::string hash;            // SHA-256, hexadecimal
};

// Called with the bytes read so far; returns false to stop.
using HashProgress = std::function<bool(std::uint64_t)>;

// Calls `sink` for each packet in file order, and returns the hash of the whole file. Reads every
// byte once. Throws Error.
std::string HashPackets(AviFile& avi, std::function<void(PacketHash const&)> const& sink,
                        HashProgress const& advance);

// The hashes as a text file: a line "# TRACK NUMBER SIZE HASH" for each packet, and last
// "HASH  NAME", as sha256sum writes it. `write` gets the text line by line. Returns the hash of the
// file.
std::string WriteHashes(AviFile& avi, std::string const& name,
                        std::function<void(std::string const&)> const& write,
                        HashProgress const& advance);

// The name of the text file for a recording.
inline std::string HashFileFor(std::string const& path) { return path + ".sha256"; }

}  // namespace kestro::avi
