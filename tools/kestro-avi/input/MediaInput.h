// One input, opened by libavformat.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "input/Track.h"
#include "input/VideoTrack.h"

namespace kestro::tool {

// What of the inputs is wanted.
struct InputOptions {
  base::Fraction rate;  // --fps, 0/1 for none
  bool video = true, audio = true;
};

// A file name or an address that libavformat knows; "-" is standard input. Its video and audio
// streams are its tracks, in the container's order.
class MediaInput {
 public:
  // `timeline` outlives the input. `lead`: the input's first video track begins the recording.
  // Throws Error when it cannot be opened or holds something that cannot be recorded.
  MediaInput(std::string const& address, InputOptions const& options, Timeline& timeline,
             bool lead);

  std::vector<std::unique_ptr<Track>> const& Tracks() const { return _tracks; }
  bool HasVideo() const { return _hasVideo; }

  // Hands one packet of the container to its track. False at the end, which the tracks were told.
  bool Read();
  // Why reading stopped before the end, empty when it did not: an error of the system, or damage.
  std::string const& Failure() const { return _failure; }
  std::string const& Damage() const { return _damage; }

 private:
  void Open(std::string const& address);
  void AddTracks(InputOptions const& options, Timeline& timeline, bool lead);
  base::Fraction Rate(AVStream& stream, InputOptions const& options, std::string const& name);
  PacketPtr FirstKey(int stream);
  int Next(AVPacket& packet);

  std::string _address;
  FormatPtr _format;
  PacketPtr _packet;
  std::deque<PacketPtr> _ahead;  // read while looking for the frame rate
  InputClock _clock;
  std::vector<std::unique_ptr<Track>> _tracks;
  std::vector<Track*> _byStream;  // null for streams that are not wanted
  bool _hasVideo = false, _ended = false;
  std::string _failure, _damage;
};

}  // namespace kestro::tool
