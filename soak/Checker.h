// Checks each file of a soak when it is closed.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::soak {

// Every packet that was pushed must be in one file, in order, unless the recording has only events.
// All functions may be called from any thread.
class Checker {
 public:
  // The next packet is `to` instead of `from`: a source was lost in a group of pictures.
  void Jump(std::uint64_t from, std::uint64_t to);
  // A new recording, which begins with this packet. `all`: every packet is recorded.
  void Begin(std::uint64_t number, bool all);
  // Reads a file that was closed.
  void Check(std::string const& path);
  // At the end of a recording: all before this packet must have been in files.
  void End(std::uint64_t number);

  void Fault(std::string const& text);
  std::vector<std::string> Faults() const;
  std::uint64_t Files() const;
  std::uint64_t Bytes() const;

 private:
  void CheckPackets(avi::AviFile& avi, std::string const& path);
  std::string ReadPacket(avi::AviFile& avi, avi::IndexEntry const& entry);

  mutable std::mutex _mutex;  // protects what follows
  std::map<std::uint64_t, std::uint64_t> _jumps;
  std::uint64_t _next[2] = {0, 0};  // by track
  bool _all = true;
  std::uint64_t _files = 0, _bytes = 0;
  std::vector<std::string> _faults;
};

}  // namespace kestro::soak
