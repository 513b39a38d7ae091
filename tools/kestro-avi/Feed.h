// The way of packets from the inputs to the files.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Segments.h"
#include "stream/PacketQueue.h"

namespace kestro::tool {

// Hands packets on at once or, `queued`, through a queue: the caller then does not wait while the
// medium stalls, up to 10 s and 64 MiB. Then it waits or, with `drop`, groups of pictures are left
// out.
class Feed {
 public:
  // `packets` and `segments` outlive it.
  Feed(Packets const& packets, Segments& segments, std::size_t tracks, bool queued, bool drop);

  bool Push(std::size_t track, TimedPacket const& packet);  // false: recording is over
  void Finish();                                            // hands on what is queued

  // After Finish: how often and how long Push has waited, and what was left out; empty for nothing.
  std::string Stalls() const;
  std::string Losses() const;

 private:
  std::uint64_t Count(char const* property) const;

  Packets const& _packets;
  std::unique_ptr<stream::PacketQueue> _queue;
  std::vector<stream::IPort*> _inputs;
  std::vector<unsigned> _sequence;  // next packet number, by track
};

}  // namespace kestro::tool
