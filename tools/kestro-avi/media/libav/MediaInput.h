// Reads an input with libavformat.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "media/libav/ClockJumps.h"
#include "media/libav/Input.h"
#include "media/libav/Libav.h"
#include "media/libav/VideoTrack.h"

namespace kestro::tool {

// Opens a file name or an address that libavformat supports; "-" is standard input. The video,
// audio and text streams become tracks, in the container's order.
class MediaInput : public Input {
 public:
  MediaInput(std::string const& address, InputOptions const& options, Timeline& timeline);

  bool Read() override;
  ReadExtent ReadSoFar() const override;

 private:
  void Open(InputOptions const& options);
  std::string Name(AVStream const& stream) const {
    return _address + ", track " + std::to_string(stream.index);
  }
  std::vector<AVStream*> SupportedStreams(InputOptions const& options);
  void AddTracks(InputOptions const& options, Timeline& timeline);
  std::unique_ptr<Track> NewTrack(AVStream& stream, InputOptions const& options,
                                  Timeline& timeline);
  std::unique_ptr<Track> NewTextTrack(AVStream& stream, InputOptions const& options,
                                      Timeline const& timeline);
  VideoOptions OptionsFor(AVStream& stream, InputOptions const& options, std::string const& name);
  bool IsLive() const;
  std::optional<avi::StartTime> ReadStart() const;
  void NoteRotation(AVStream const& stream);
  void Finish(int outcome);
  void CheckLength();
  void CheckSize(std::string const& path);
  PacketPtr FindFirstKey(int stream);
  int ReadPacket(AVPacket& packet);

  std::string _address;
  bool (*const _interrupted)();
  FormatPtr _format;
  PacketPtr _packet;
  std::deque<PacketPtr> _ahead;  // read while determining the frame rate
  InputClock _clock;
  ClockJumps _jumps;
  std::map<int, std::int64_t> _end_ns;  // by stream: the end of its packets so far
  std::vector<Track*> _byStream;        // null for streams that are not recorded
  bool _hasAudio = false, _ended = false;
};

}  // namespace kestro::tool
