// Event-only recording: passes on the packets around events.
#pragma once

#include <atomic>
#include <vector>

#include "recorder/Events.h"
#include "recorder/PacketRing.h"
#include "recorder/Segments.h"
#include "stream/ISink.h"

namespace kestro::record {

// Takes the packets of all tracks and keeps the latest ones in memory. For each event it passes on
// those from the last key frame before the event's time to the end of that time, and then ends the
// file. Events that overlap extend it.
//
// An event's time is that of packets: those before it may still be in the queue, and other tracks
// may lag. The file ends with the leading track's first frame after that time, the other tracks are
// cut there, and it waits for those that lag less than ten seconds.
class EventGate : public stream::ISink {
 public:
  // All arguments must outlive the object. Opens the inputs.
  EventGate(RecorderOptions const& options, Tracks const& tracks, Packets const& packets,
            Events const& events, Segments& segments, Segments::Report report);
  ~EventGate() override;

  stream::IPort& Input(std::size_t track) { return *_tracks[track].input; }
  // Looks for events, if no packet comes. Waits for its turn. Any thread.
  void Wake();
  // Passes on what is left of an event. No packets are accepted after this.
  bool End();

  void AddTo(record::Status& status) const;  // any thread

 private:
  struct State {
    stream::IPort* input = nullptr;
    std::int64_t end_ns = INT64_MIN;  // of the packets received so far
  };

  bool ReceivePacket(stream::Packet& packet, void* context) override;
  bool Receive(std::size_t track, PacketRing::PacketRef packet);
  void CheckRoom();
  void NoteTimes(std::size_t track, stream::Packet const& packet);
  bool Advance();
  bool Begin();
  void Extend();
  bool Belongs(std::size_t track, stream::Packet const& packet) const;
  void CutAt(stream::Packet const& leading);
  bool PassHeld();
  bool PassFirst(std::size_t track);
  bool Pass(std::size_t track, stream::Packet& packet);
  bool Complete() const;
  bool EndFile();

  RecorderOptions const& _options;
  Tracks const& _info;
  Events const& _events;
  Segments& _segments;
  Segments::Report const _report;
  PacketRing _ring;
  std::vector<State> _tracks;
  stream::IPort* _wake = nullptr;
  std::size_t const _lead;
  std::int64_t _latest_ns = INT64_MIN, _reorder_ns = 0;  // leading track: latest time, steps back
  std::int64_t _done_ns = INT64_MIN;                     // the end of the last file

  bool _over = false;                      // a packet was lost
  bool _short = false, _tooShort = false;  // reported that there is too little memory
  bool _writing = false;                   // a file; the following are about it
  std::int64_t _begin_ns = 0, _to_ns = 0;  // its first key frame; the end of the event's time
  std::int64_t _passed_ns = 0;             // end of the leading track in it
  std::int64_t _cut_ns = INT64_MAX;        // its end, once it is known

  std::atomic<bool> _begun{false}, _recording{false};
  std::atomic<std::uint64_t> _skipped{0};
};

}  // namespace kestro::record
