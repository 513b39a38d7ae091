// From payloads to the packets of the pipeline.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "recorder/Recorder.h"
#include "recorder/TrackInfo.h"
#include "stream/Packet.h"

namespace kestro::record {

// The media of a recording's tracks, the same for all its elements and files.
class Packets {
 public:
  explicit Packets(Tracks const& tracks);

  stream::IMedia* Media(std::size_t track) const { return _media[track].get(); }
  // Takes the payload over, whose release function is called sooner or later, also when memory runs
  // out. Times are the caller's to set.
  base::Ref<stream::Packet> New(std::size_t track, Payload const& payload) const;
  // Whether a track's packets carry their chunk's header.
  bool Headed(std::size_t track) const { return _headed[track]; }

 private:
  // Beyond these, payloads are copied: a camera has few buffers.
  static constexpr int kMostHeld = 4;

  class Foreign;

  std::vector<base::Ref<stream::IMedia>> _media;
  std::vector<bool> _headed;
  std::shared_ptr<std::atomic<int>> _held = std::make_shared<std::atomic<int>>(0);
};

}  // namespace kestro::record
