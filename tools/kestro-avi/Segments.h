// A recording as one file after another.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Recorder.h"
#include "SegmentNames.h"
#include "stream/ISink.h"

namespace kestro::tool {

struct SegmentOptions {
  static constexpr std::uint64_t kDefaultSize = (std::uint64_t{1} << 31) - 1;
  std::uint64_t size = kDefaultSize;  // bytes, at most
  std::int64_t time_ns = -1;          // begin a new file after this; negative: never
};

// Takes the packets of all tracks, in time order, and records them. Each packet goes into one file,
// and what the files hold, one behind the other, is the whole recording.
//
// A file begins with a key frame of the leading track: the first video track, or the first track of
// sound where there is no video. The other tracks are cut at that frame's time, sound to the
// sample, so that each file by itself is in step. Therefore what reaches beyond the leading track's
// next frame waits for that frame, but never for long.
//
// A file is as large as asked for when no group of pictures is much larger than those before it; it
// grows on while no key frame comes.
class Segments : public stream::ISink {
 public:
  // `tracks`, `packets` and `names` outlive it. Throws Error for what the first file's Recorder
  // refuses. An input for each track stands open.
  Segments(SegmentOptions const& options, RecorderOptions const& recorder,
           std::vector<Track*> const& tracks, Packets const& packets, SegmentNames& names);
  ~Segments() override;

  stream::IPort& Input(std::size_t track) { return *_tracks[track].input; }

  // Ends the last file; packets are refused from then on. False when one of the files is not
  // complete. What stands below is known then.
  bool Finish();
  bool Begun() const { return _pushed != 0; }  // whether anything was recorded
  std::vector<std::string> const& Errors() const { return _errors; }
  std::vector<std::string> const& Warnings() const { return _warnings; }

 private:
  using PacketRef = base::Ref<stream::Packet>;
  struct State {
    stream::IPort* input;
    TrackInfo const* info;
    Bytes rest;  // sound that does not fill a block, once a cut has shifted the blocks
    std::int64_t rest_ns = 0;
  };
  struct Held {
    std::size_t track;
    PacketRef packet;
  };

  bool ReceivePacket(stream::Packet& packet, void* context) override;
  bool Lead(PacketRef const& packet);
  bool Follow(std::size_t track, PacketRef packet);
  bool Due(std::int64_t time_ns) const;
  bool Switch(std::int64_t time_ns);
  bool Release(std::int64_t time_ns, bool (*goes)(stream::Packet const&, std::int64_t));
  bool Write(std::size_t track, stream::Packet& packet);
  bool WriteBlocks(std::size_t track, bool last);
  bool Store(std::size_t track, stream::Packet& packet);
  bool EndFile();

  SegmentOptions const _options;
  RecorderOptions const _recorderOptions;
  std::vector<Track*> const& _list;
  Packets const& _packets;
  SegmentNames& _names;
  std::vector<State> _tracks;
  std::size_t _lead = 0;

  std::unique_ptr<Recorder> _recorder;  // null when recording is over
  std::deque<Held> _held;
  std::int64_t _next_ns = 0;                // when the leading track's next frame is due
  std::int64_t _begin_ns = 0, _end_ns = 0;  // of the current file
  std::int64_t _others_ns = 0;              // how far the other tracks are written
  std::uint64_t _atKey = 0, _largest = 0;   // Recorder::Written at the last key; between two
  std::uint64_t _pushed = 0;
  bool _begun = false;  // the leading track has a frame in the current file
  std::vector<std::string> _errors, _warnings;
};

}  // namespace kestro::tool
