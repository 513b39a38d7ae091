#include "stream/PacketQueue.h"

#include <algorithm>
#include <chrono>
#include <functional>

namespace kestro::stream {

using base::int64;
using base::uint64;

PacketQueue::~PacketQueue() {
  Detach();
  IElementWithThread::Stop();
}

PacketQueue::Track PacketQueue::AddTrack(char const* codecs) {
  State state;
  state.ports = {AddPort(true, codecs), AddPort(false, codecs)};
  _tracks.push_back(state);
  return state.ports;
}

std::size_t PacketQueue::TrackOf(IPort const& input) const {
  auto const track = std::find_if(_tracks.begin(), _tracks.end(), [&input](State const& state) {
    return state.ports.input == &input;
  });
  return static_cast<std::size_t>(track - _tracks.begin());
}

bool PacketQueue::AcceptMedia(IPort& port, IMedia* media) {
  std::size_t const track = TrackOf(port);
  return track < _tracks.size() && _tracks[track].ports.output->Offer(media);
}

bool PacketQueue::StatusChange(int status) { return !Refused() && ISink::StatusChange(status); }

bool PacketQueue::Open() {
  std::lock_guard lock(_queueMutex);
  _counts = {};
  _prepared = _ready = _dropping = false;
  _resume_ns = INT64_MIN;
  _failed = _ioFailed = false;
  return IStatus::Open();
}

bool PacketQueue::Start() {
  if (CurrentStatus() >= kRunning) return false;
  return IElementWithThread::Start() && IStatus::Start();
}

bool PacketQueue::Stop() {
  bool const ready = SinksReady();
  {
    Lock lock(_queueMutex);
    // A sink that still waits for another track will not take packets any more.
    if (!_queue.empty() && !ready) _failed = true;
    _passedOn.wait(lock, [this] { return _queue.empty() || _failed; });
    _counts.dropped += _queue.size();
    _queue.clear();
    _bytes = 0;
  }
  return IElementWithThread::Stop() && IStatus::Stop();  // waits for a packet in progress
}

// When the first packet arrives, every input has its media or will not get one.
void PacketQueue::Prepare() {
  _lead = _tracks.size();
  for (std::size_t i = _tracks.size(); i-- > 0;) {
    auto const media = _tracks[i].ports.input->Media();
    if (!media) _tracks[i].ports.output->Silence();
    _tracks[i].video = media && media->IsVideo();
    _tracks[i].awaitsKey = false;
    if (_tracks[i].video) _lead = i;
  }
  _prepared = true;
}

bool PacketQueue::ReceivePacket(Packet& packet, void* context) {
  IPort const& input = *static_cast<IPort*>(context);
  std::size_t const track = TrackOf(input);
  if (track == _tracks.size()) return false;
  if (!_prepared) Prepare();
  auto own = packet.Share();
  bool const dropped = _dropping;
  bool admitted = true;
  {
    Lock lock(_queueMutex);
    if (!_drop && !AwaitRoom(lock, packet, input)) return false;
    if (_failed) return false;
    admitted = !_drop || Admit(packet, track);
    if (admitted) {
      _bytes += static_cast<uint64>(packet.Size());
      _queue.push_back({std::move(own), track});
    }
  }
  if (_dropping && !dropped)
    SendMessageUp("warning", "the queue is full, packets are dropped", nullptr);
  if (admitted) Wake();
  return true;
}

// Whether one more packet would exceed a limit. A packet always fits into an empty queue.
bool PacketQueue::Full(Packet const& packet) const {
  if (_queue.empty()) return false;
  int64 const held_ns = packet.Pts() - _queue.front().packet->Pts();
  return (_maxPackets != 0 && _queue.size() >= _maxPackets) ||
         (_maxBytes != 0 && _bytes + static_cast<uint64>(packet.Size()) > _maxBytes) ||
         (_maxTime_ms != 0 && held_ns / 1000000 > static_cast<int64>(_maxTime_ms));
}

// Returns false if there will never be room.
bool PacketQueue::AwaitRoom(Lock& lock, Packet const& packet, IPort const& input) {
  if (!Full(packet)) return true;
  auto const begin = std::chrono::steady_clock::now();
  while (!_failed && Full(packet)) {
    if (Stuck() && GivesUp(input)) return false;
    _passedOn.wait_for(lock, kPoll);
  }
  auto const waited = std::chrono::steady_clock::now() - begin;
  auto const waited_us =
      static_cast<uint64>(std::chrono::duration_cast<std::chrono::microseconds>(waited).count());
  ++_counts.waits;
  _counts.waited_us += waited_us;
  _counts.longest_us = std::max(_counts.longest_us, waited_us);
  return true;
}

// Returns whether to queue the packet; otherwise it was dropped.
bool PacketQueue::Admit(Packet const& packet, std::size_t track) {
  State& state = _tracks[track];
  bool const begins = _lead == _tracks.size() || (track == _lead && packet.IsKey());
  if (Full(packet)) {
    if (begins || !_dropping) Drop(packet, track);
  } else if (_dropping && begins) {
    _dropping = false;
    _resume_ns = packet.Pts();
    state.awaitsKey = false;
  } else if (!_dropping && packet.Pts() >= _resume_ns && packet.IsKey()) {
    state.awaitsKey = false;
  }
  // On other tracks, the dropped period ends where the leading track resumes.
  bool const late = track != _lead && packet.Pts() < _resume_ns;
  if (!_dropping && !late && !state.awaitsKey) return true;
  ++_counts.dropped;
  return false;
}

// Drops the queued packets of the group that this packet belongs to.
void PacketQueue::Drop(Packet const& packet, std::size_t track) {
  _dropping = true;
  ++_counts.groups;
  for (State& state : _tracks) state.awaitsKey = state.video;
  if (_lead == _tracks.size() || (track == _lead && packet.IsKey())) return;
  auto const key = std::find_if(_queue.rbegin(), _queue.rend(), [this](Item const& item) {
    return item.track == _lead && item.packet->IsKey();
  });
  if (key == _queue.rend()) return;  // its start was passed on: only the rest is dropped
  int64 const from_ns = key->packet->Pts();
  auto const place = key.base() - 1;
  auto const belongs = [&](Item const& item) {
    return item.track == _lead || item.packet->Pts() >= from_ns;
  };
  auto const kept = std::stable_partition(place, _queue.end(), std::not_fn(belongs));
  for (auto item = kept; item != _queue.end(); ++item) {
    _bytes -= static_cast<uint64>(item->packet->Size());
    ++_counts.dropped;
  }
  _queue.erase(kept, _queue.end());
}

bool PacketQueue::SinksReady() {
  if (!_ready)
    _ready = std::all_of(_tracks.begin(), _tracks.end(),
                         [](State const& state) { return state.ports.output->Ready(); });
  return _ready;
}

bool PacketQueue::Loop() {
  Item item;
  bool const ready = SinksReady();
  {
    Lock lock(_queueMutex);
    if (_queue.empty() || _failed || !ready) return false;
    item = std::move(_queue.front());
    _queue.pop_front();
    _bytes -= static_cast<uint64>(item.packet->Size());
  }
  if (!_tracks[item.track].ports.output->Push(*item.packet)) {
    Lock lock(_queueMutex);
    _failed = true;
  }
  _passedOn.notify_all();
  if (_failed) SendMessageUp("error", "a packet was refused", nullptr);
  return true;
}

base::PropertyList PacketQueue::Properties() {
  using Q = PacketQueue;
  base::PropertyList list;
  list.Member<Q>("maxPackets", &Q::_maxPackets, "maximum number of packets held, 0 for no limit");
  list.Member<Q>("maxBytes", &Q::_maxBytes, "maximum number of bytes held, 0 for no limit");
  list.Member<Q>("maxTime_ms", &Q::_maxTime_ms,
                 "maximum time held in milliseconds, 0 for no limit");
  list.Member<Q>("drop", &Q::_drop,
                 "whether a full queue drops groups of pictures; otherwise it waits");
  auto const count = [&list](char const* name, uint64 Counts::*member, char const* help) {
    list.Add<Q, uint64>(
        name, help,
        [member](Q& queue, uint64& out) {
          Lock lock(queue._queueMutex);
          out = queue._counts.*member;
          return true;
        },
        nullptr);
  };
  count("dropped", &Counts::dropped, "packets dropped");
  count("droppedGroups", &Counts::groups, "groups of pictures dropped, completely or in part");
  count("waits", &Counts::waits, "how often a delivering thread had to wait");
  count("waited_us", &Counts::waited_us, "total waiting time in microseconds");
  count("longestWait_us", &Counts::longest_us, "longest wait in microseconds");
  return list;
}

namespace {
[[maybe_unused]] bool const registered = [] {
  auto* record =
      base::TClass<PacketQueue>::Register("PacketQueue-packet-queue", PacketQueue::Properties());
  if (record != nullptr) record->Init("kestro", 0x10001, "Orvane", "host");
  return record != nullptr;
}();
}  // namespace

}  // namespace kestro::stream
