// Turns payloads into packets of the pipeline.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "recorder/Recorder.h"
#include "recorder/TrackInfo.h"
#include "stream/NalUnits.h"
#include "stream/Packet.h"

namespace kestro::record {

// Creates packets, and the media of the tracks, which all elements and files of a recording share.
class Packets {
 public:
  static constexpr int kMostHeld = 4;

  // If more than `mostHeld` payloads are in use, new ones are copied: a camera has few buffers.
  // Unless `verbatim`, start codes get the length that the muxer needs.
  explicit Packets(Tracks const& tracks, int mostHeld = kMostHeld, bool verbatim = false);

  stream::IMedia* Media(std::size_t track) const { return _media[track].get(); }
  // Takes ownership of the payload: its release function is always called, even when memory runs
  // out. The caller sets the packet's times.
  base::Ref<stream::Packet> New(std::size_t track, Payload const& payload) const;
  // Whether a track's packets include the chunk header.
  bool Headed(std::size_t track) const { return _headed[track]; }

 private:
  class BorrowedMemory;

  std::vector<base::Ref<stream::IMedia>> _media;
  std::vector<bool> _headed;
  std::vector<std::optional<stream::NalCodec>> _nal;  // of access units to check
  int const _mostHeld;
  std::shared_ptr<std::atomic<int>> _held = std::make_shared<std::atomic<int>>(0);
};

}  // namespace kestro::record
