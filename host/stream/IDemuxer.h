// Sources that read a container.
#pragma once

#include <functional>

#include "stream/IIO.h"
#include "stream/ISource.h"

namespace kestro::stream {

// Errors reach the application as the message "error". If a file cannot be opened, Open also fails,
// unless the element documents otherwise. If only part of a file can be read, that part is played.
// A read that fails during playback ends the stream until the next seek. If part of a packet could
// be read, the packet consists of that part.
class KESTRO_API IDemuxer : public ISource, public IIO {
 public:
  enum class PlayMode { kNormal = 0, kFast = 1, kBack = 2, kVideo = 3, kAudio = 4 };

  explicit IDemuxer(char const* name);

  // Silences the outputs that have no track yet.
  bool Start() override;
  // Stops the thread, withdraws the media from the outputs and closes the input. It calls the sinks
  // without holding a lock.
  bool Close() override;

  // Calls the callback with the media of each track, until it returns false.
  virtual bool ParseFile(std::function<bool(IMedia*)> callback) = 0;
  virtual bool Seek(base::int64 ms) = 0;
  virtual base::int64 Duration() const = 0;  // milliseconds
  virtual bool PlayModeSwitch(PlayMode mode) = 0;

  static base::PropertyList const& Properties();

 protected:
  void Withdraw();  // withdraws the media from the outputs

  unsigned _extFlags = Packet::kDiscontinuity;  // set on the first packet after a seek
  unsigned _eosFlags = Packet::kEndOfStream;    // set on the last packet of a track
};

}  // namespace kestro::stream
