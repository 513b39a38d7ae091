#include "Feed.h"

#include "Errors.h"
#include "Text.h"
#include "base/IClass.h"

namespace kestro::tool {

static constexpr unsigned kMaxTime_ms = 10000, kMaxBytes = 64 << 20;

Feed::Feed(Packets const& packets, Segments& segments, std::size_t tracks, bool queued, bool drop)
    : _packets(packets), _sequence(tracks) {
  if (queued) {
    base::AttrSet attrs;
    attrs.Add("Register", "PacketQueue-packet-queue");
    _queue.reset(base::IClass::New<stream::PacketQueue>(attrs));
    if (!_queue || !_queue->Set("maxTime_ms", kMaxTime_ms) || !_queue->Set("maxBytes", kMaxBytes) ||
        !_queue->Set("drop", drop))
      throw Error(kIo, "the host has no queue");
  }
  for (std::size_t i = 0; i < tracks; ++i) {
    if (!_queue) {
      _inputs.push_back(&segments.Input(i));
      continue;
    }
    auto const track = _queue->AddTrack();
    stream::IPort::Link(*track.output, segments.Input(i));
    track.input->Offer(packets.Media(i));
    _inputs.push_back(track.input);
  }
  if (_queue && !_queue->StatusChange(stream::IStatus::kRunning))
    throw Error(kIo, "the queue cannot be started");
}

bool Feed::Push(std::size_t track, TimedPacket const& packet) {
  auto const made = _packets.New(track, packet);
  made->Seq(_sequence[track]++);
  return _inputs[track]->Push(*made);
}

void Feed::Finish() {
  if (_queue) _queue->StatusChange(stream::IStatus::kClosed);
}

std::uint64_t Feed::Count(char const* property) const {
  std::uint64_t count = 0;
  if (_queue) _queue->Get(property, count);
  return count;
}

std::string Feed::Stalls() const {
  std::uint64_t const waits = Count("waits");
  if (waits == 0) return {};
  return "the output stalled: the inputs had to wait " + Quantity(waits, "time") + ", " +
         Seconds(static_cast<std::int64_t>(Count("longestWait_us") / 1000)) + " at most";
}

std::string Feed::Losses() const {
  std::uint64_t const dropped = Count("dropped");
  if (dropped == 0) return {};
  return "the output stalled: " + Quantity(dropped, "packet") + " of " +
         Quantity(Count("droppedGroups"), "group") + " of pictures are left out";
}

}  // namespace kestro::tool
