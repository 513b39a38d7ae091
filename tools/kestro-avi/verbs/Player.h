// Gets packets from the plug-in's demuxer, one at a time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/IO.h"
#include "stream/IDemuxer.h"
#include "stream/ISink.h"

namespace kestro::tool {

using base::int64;

// A packet as the pipeline delivers it.
struct Delivered {
  std::size_t output = 0;  // in the order in which the demuxer publishes tracks
  unsigned seq = 0;
  int64 pts_ms = 0, duration_ms = 0;
  int size = 0;
  bool key = false, eos = false;
  int64 offset = 0;  // of the data in the file
};

// A pipeline of the demuxer and a sink, which runs on the demuxer's thread. The sink holds each
// packet until the next one is requested, so that changes to the demuxer between two calls of Next
// take effect between two packets. The plug-in must be loaded.
//
//   Player player(std::make_unique<base::FileIO>("in.avi", "rb"), "in.avi", outputs, 0);
//   player.Demuxer().Seek(2000);
//   while (player.Next(packet) == Player::kPacket) ...
class Player : private stream::ISink {
 public:
  enum Event { kPacket, kEnd, kFailed, kInterrupted };

  // Opens the file; `path` is used in messages. `outputs`: the maximum number of tracks; `video`:
  // the video track to play, 0 for the first; `preload`: read through a cache that keeps this many
  // bytes of the file's start. Throws Error.
  Player(std::unique_ptr<base::IO> file, std::string const& path, std::size_t outputs,
         unsigned video, std::optional<int64> preload = {});
  ~Player() override;

  stream::IDemuxer& Demuxer() { return *_demuxer; }
  // Whether everything that opening needs could be read.
  bool Opened() const { return _opened; }
  // The numbers in the file of the tracks that the demuxer publishes, by output, and of the video
  // tracks that "plyVidCtrl" selects from.
  std::vector<std::size_t> Published();
  std::vector<std::size_t> Videos();
  // For each of these, the number of the track whose packets the demuxer delivers for it.
  std::map<std::size_t, std::size_t> const& PacketSources() const { return _packetSources; }

  // Releases the last packet and waits for the next event. After kEnd or kFailed, seek before
  // calling it again.
  Event Next(Delivered& packet);
  // The offset of a failed read.
  int64 FailedAt() const;

 private:
  class TracedIO : public base::IOFilter {
   public:
    explicit TracedIO(base::IO& io) : IOFilter("TracedIO", io) {}
    bool Seek(int64 offset, int whence) override;
    // The last seek target, if it did not fit the demuxer's 32 bits and so was negative; else -1.
    int64 Refused() const { return _refused; }

   private:
    std::atomic<int64> _refused{-1};
  };

  bool ReceivePacket(stream::Packet& packet, void* context) override;
  void SetEvent(Event event);
  std::size_t TrackOf(stream::IMedia& media);

  std::unique_ptr<base::IO> const _file;
  TracedIO _io;
  std::unique_ptr<stream::IDemuxer> _demuxer;
  unsigned const _video;
  std::vector<stream::IPort*> _inputs;                // the first ones have media
  std::map<std::size_t, std::size_t> _packetSources;  // by number in the file
  bool _opened = false;

  std::mutex _mutex;
  std::condition_variable _changed;
  Event _event = kEnd;
  Delivered _packet;
  bool _waiting = false;  // Next has not returned the last event
  bool _held = false;     // the sink holds a packet, which Next has returned unless _waiting
  bool _closing = false;
};

}  // namespace kestro::tool
