// The plug-in's demuxer at work: its packets, one at a time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/File.h"
#include "stream/IDemuxer.h"
#include "stream/ISink.h"

namespace kestro::tool {

using base::int64;

// A packet as the sink of the pipeline got it.
struct Delivered {
  std::size_t output = 0;  // counted as the demuxer publishes tracks
  unsigned seq = 0;
  int64 pts_ms = 0, duration_ms = 0;
  int size = 0;
  bool key = false, eos = false;
  int64 offset = 0;  // of the data in the file
};

// A pipeline of two, on the demuxer's thread: the demuxer, and a sink that holds each packet until
// the next one is asked for. What is done to the demuxer between two calls of Next thus takes
// effect between two packets. The plug-in must be loaded.
//
//   Player player("in.avi", outputs, 0);
//   player.Demuxer().Seek(2000);
//   while (player.Next(packet) == Player::kPacket) ...
class Player : private stream::ISink {
 public:
  enum Event { kPacket, kEnd, kFailed, kInterrupted };

  // Opens the file. `outputs`: how many tracks there are at most; `video`: the video track to play,
  // counted among video tracks; `preload`: reads through a cache that keeps so many bytes of the
  // file's start. Throws Error.
  Player(std::string const& path, std::size_t outputs, unsigned video,
         std::optional<int64> preload = {});
  ~Player() override;

  stream::IDemuxer& Demuxer() { return *_demuxer; }
  // Whether all could be read that opening needs.
  bool Opened() const { return _opened; }
  // The tracks that the demuxer publishes, by output, and those among which "plyVidCtrl" chooses:
  // their numbers in the file.
  std::vector<std::size_t> Published();
  std::vector<std::size_t> Videos();
  // Of all those, the track whose packets the demuxer takes for the track's.
  std::map<std::size_t, std::size_t> const& TakenFor() const { return _takenFor; }

  // Lets go of the last packet and waits for what comes then. After the end, or a failure, there is
  // nothing more until the demuxer is told to go elsewhere.
  Event Next(Delivered& packet);
  // Where a failed read took place.
  int64 FailedAt() const;

 private:
  class TracedIO : public base::IOFilter {
   public:
    explicit TracedIO(base::IO& io) : IOFilter("TracedIO", io) {}
    bool Seek(int64 offset, int whence) override;
    // The last position, if it did not fit the demuxer's 32 bits: it arrived as a negative one.
    int64 Refused() const { return _refused; }

   private:
    std::atomic<int64> _refused{-1};
  };

  bool ReceivePacket(stream::Packet& packet, void* context) override;
  void Happened(Event event);
  std::size_t TrackOf(stream::IMedia& media);

  base::FileIO _file;
  TracedIO _io;
  std::unique_ptr<stream::IDemuxer> _demuxer;
  unsigned const _video;
  std::vector<stream::IPort*> _inputs;           // the first of which have media
  std::map<std::size_t, std::size_t> _takenFor;  // by number in the file
  bool _opened = false;

  std::mutex _mutex;
  std::condition_variable _changed;
  Event _event = kEnd;
  Delivered _packet;
  bool _waiting = false;  // an event waits for Next
  bool _held = false;     // the sink holds a packet; Next has returned it unless one waits
  bool _closing = false;
};

}  // namespace kestro::tool
