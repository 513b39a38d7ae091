// A queue between a source and a sink.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "stream/IElementWithThread.h"
#include "stream/ISink.h"

namespace kestro::stream {

// Registered as "PacketQueue-packet-queue". Takes packets and passes them on, in order, on its own
// thread, so that the thread that delivers them never waits for the sink. A camera's thread, for
// example, does not wait for a flush of the card.
//
//   auto* queue = IClass::New<PacketQueue>(attrs);
//   PacketQueue::Track track = queue->AddTrack();       // for each, before the first packet
//   IPort::Link(*track.output, *muxer->AddInput());
//   track.input->Offer(media);                          // also offers it to the muxer
//   muxer->StatusChange(kRunning); queue->StatusChange(kRunning);
//   while (...) track.input->Push(*packet);
//   queue->StatusChange(kClosed);                       // returns when all packets are passed on
//   muxer->StatusChange(kClosed);
//
// The queue is full if one more packet would exceed a limit. It then waits for room or, with
// "drop", drops the newest group of pictures completely: its packets in the queue, from the key
// frame on, and those that follow until there is room for a key frame. On the other tracks it drops
// the same period, so that the recording is shorter but stays in sync. The groups are those of the
// first video track; without video, every packet is a group of its own. A dropped packet does not
// count as refused.
//
// The queue holds a packet's payload until it has passed the packet on. Pausing has no effect. If
// the sink refuses a packet, the queue enters its error state and refuses all further packets.
// While its sinks still wait for media, packets that wait for room give up when the queue is closed
// or its source stopped.
//
// Properties: "maxPackets", "maxBytes" and "maxTime_ms" are the limits (0 for none); "drop" as
// above. Read only, for one recording: "dropped" packets, "droppedGroups", and how often and how
// long delivering threads had to wait: "waits", "waited_us", "longestWait_us".
class KESTRO_API PacketQueue : public ISink, public IElementWithThread {
 public:
  struct Track {
    IPort* input;
    IPort* output;
  };

  PacketQueue() : ISink("PacketQueue") {}
  ~PacketQueue() override;

  // The ports are valid until the queue is destroyed.
  Track AddTrack(char const* codecs = "*");

  // Refused where ISink refuses it, and from inside a packet or message handler of any element.
  [[nodiscard]] bool StatusChange(int status) override;
  bool AcceptMedia(IPort& port, IMedia* media) override;
  bool ReceivePacket(Packet& packet, void* context) override;

  bool Open() override;
  bool Start() override;
  bool Stop() override;  // first passes on the queued packets

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
    bool awaitsKey = false;  // part of its current group was dropped
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
  std::size_t _lead = 0;  // track whose groups count; _tracks.size() without video
  bool _prepared = false;

  std::atomic<bool> _ready{false};  // the sinks are ready for packets

  mutable std::mutex _queueMutex;  // guards the members below
  std::condition_variable _passedOn;
  std::deque<Item> _queue;
  base::uint64 _bytes = 0;
  bool _dropping = false;
  base::int64 _resume_ns = INT64_MIN;  // other tracks' packets before it are dropped
  Counts _counts;

  base::uint64 _maxPackets = 0, _maxBytes = 0, _maxTime_ms = 0;
  bool _drop = false;
};

}  // namespace kestro::stream
