// From the input's packets to those of the pipeline.
#pragma once

#include <vector>

#include "input/Track.h"
#include "stream/Packet.h"

namespace kestro::tool {

// The media of a recording's tracks, the same for all its elements and files.
class Packets {
 public:
  explicit Packets(std::vector<Track*> const& tracks);

  stream::IMedia* Media(std::size_t track) const { return _media[track].get(); }
  base::Ref<stream::Packet> New(std::size_t track, TimedPacket const& packet) const;
  // Whether a track's packets carry their chunk's header.
  bool Headed(std::size_t track) const { return _headed[track]; }

 private:
  std::vector<base::Ref<stream::IMedia>> _media;
  std::vector<bool> _headed;
};

}  // namespace kestro::tool
