// Sources that read a container.
#pragma once

#include <functional>

#include "stream/IIO.h"
#include "stream/ISource.h"

namespace kestro::stream {

// Faults reach the application as the message "error". A file that cannot be opened also fails
// Open, where the element does not say otherwise; of one that can be read in part, what could be
// read is played. A read that fails during play ends the stream, until a seek; where a part of a
// packet could be read, the packet is that part.
class KESTRO_API IDemuxer : public ISource, public IIO {
 public:
  enum class PlayMode { kNormal = 0, kFast = 1, kBack = 2, kVideo = 3, kAudio = 4 };

  explicit IDemuxer(char const* name);

  // Outputs that have no track by now are silent.
  bool Start() override;
  // Stops the thread, withdraws the media from the outputs and closes the input. The sinks are
  // asked without a lock.
  bool Close() override;

  // Reports each track's media; the callback returns false to stop.
  virtual bool ParseFile(std::function<bool(IMedia*)> callback) = 0;
  virtual bool Seek(base::int64 ms) = 0;
  virtual base::int64 Duration() const = 0;  // milliseconds
  virtual bool PlayModeSwitch(PlayMode mode) = 0;

  static base::PropertyList const& Properties();

 protected:
  void Withdraw();  // the media from the outputs

  unsigned _extFlags = Packet::kDiscontinuity;  // put on the first packet after a seek
  unsigned _eosFlags = Packet::kEndOfStream;    // put on the last packet of a track
};

}  // namespace kestro::stream
