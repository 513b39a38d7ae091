// A queue between a source and a sink.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "stream/IElementWithThread.h"
#include "stream/ISink.h"

namespace kestro::stream {

// Registered as "PacketQueue-packet-queue". Takes packets and hands them on, in order, on a thread
// of its own, so that whoever delivers them never waits for what the sink does: a camera's thread
// does not wait for a flush of the card.
//
//   auto* queue = IClass::New<PacketQueue>(attrs);
//   PacketQueue::Track track = queue->AddTrack();       // for each, before the first packet
//   IPort::Link(*track.output, *muxer->AddInput());
//   track.input->Offer(media);                          // is offered on to the muxer
//   muxer->StatusChange(kRunning); queue->StatusChange(kRunning);
//   while (...) track.input->Push(*packet);
//   queue->StatusChange(kClosed);                       // returns when all has been handed on
//   muxer->StatusChange(kClosed);
//
// The queue is full when one more packet would exceed a bound. Then it waits for room or, with
// "drop", throws away the newest group of pictures, whole: what of it is queued, from its key frame
// on, and what comes of it until a key frame finds room. Of the other tracks it throws away the
// same stretch of time, so that the recording is shorter and stays in step. The first video track's
// groups count; without video every packet is a group of its own. What is dropped was not refused.
//
// A packet holds its payload until it has been handed on. Pausing has no effect. When the sink
// refuses one, the queue enters its error state and refuses what follows. While its sinks still
// wait for media, what waits for room gives up when the queue is closed or its source stopped.
//
// Properties: "maxPackets", "maxBytes", "maxTime_ms" are the bounds (0 for none); "drop" as above;
// read only, for one recording: "dropped" packets, "droppedGroups", and how often and how long
// deliverers had to wait: "waits", "waited_us", "longestWait_us".
class KESTRO_API PacketQueue : public ISink, public IElementWithThread {
 public:
  struct Track {
    IPort* input;
    IPort* output;
  };

  PacketQueue() : ISink("PacketQueue") {}
  ~PacketQueue() override;

  // Valid until the queue is destroyed.
  Track AddTrack(char const* codecs = "*");

  // Refused, as ISink's, and from inside a packet or message handler of any element.
  [[nodiscard]] bool StatusChange(int status) override;
  bool AcceptMedia(IPort& port, IMedia* media) override;
  bool ReceivePacket(Packet& packet, void* context) override;

  bool Open() override;
  bool Start() override;
  bool Stop() override;  // hands on what is queued

  static base::PropertyList Properties();

 protected:
  bool Loop() override;
  bool Stuck() const override { return !_ready; }
  bool Takes(int status) const override { return status >= kRunning; }
  bool OwnThread() const override { return Inside(); }

 private:
  using Lock = std::unique_lock<std::mutex>;
  struct Item {
    base::Ref<Packet> packet;
    std::size_t track;
  };
  struct State {
    Track ports;
    bool video = false;
    bool awaitsKey = false;  // something of its current group was dropped
  };
  struct Counts {
    base::uint64 dropped = 0, groups = 0, waits = 0, waited_us = 0, longest_us = 0;
  };

  std::size_t TrackOf(IPort const& input) const;
  void Prepare();
  bool Full(Packet const& packet) const;
  bool AwaitRoom(Lock& lock, Packet const& packet, IPort const& input);
  bool Admit(Packet const& packet, std::size_t track);
  void Drop(Packet const& packet, std::size_t track);
  bool SinksReady();

  std::vector<State> _tracks;
  std::size_t _lead = 0;  // the track whose groups count; none without video
  bool _prepared = false;

  std::atomic<bool> _ready{false};  // the sinks take packets

  mutable std::mutex _queueMutex;  // of what follows
  std::condition_variable _handedOn;
  std::deque<Item> _queue;
  base::uint64 _bytes = 0;
  bool _dropping = false;
  base::int64 _resume_ns = INT64_MIN;  // other tracks' packets before this time were dropped
  Counts _counts;

  base::uint64 _maxPackets = 0, _maxBytes = 0, _maxTime_ms = 0;
  bool _drop = false;
};

}  // namespace kestro::stream
