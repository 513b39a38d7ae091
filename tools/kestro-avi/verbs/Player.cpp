#include "verbs/Player.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/Plugin.h"

namespace kestro::tool {

bool Player::TracedIO::Seek(int64 offset, int whence) {
  _refused = offset < 0 ? static_cast<unsigned>(offset) : int64{-1};
  return IOFilter::Seek(offset, whence);
}

Player::Player(std::unique_ptr<base::IO> file, std::string const& path, std::size_t outputs,
               unsigned video, std::optional<int64> preload)
    : ISink("Player"), _file(std::move(file)), _io(*_file), _video(video) {
  _demuxer = NewDemuxer(preload ? "CusAviDemuxer" : "avi-demuxer");
  _demuxer->OnMessage(
      [this](stream::IElement&, char const* type, char const*, base::AttrSet const*) {
        if (std::strcmp(type, "eos") == 0) SetEvent(kEnd);
        if (std::strcmp(type, "error") == 0) SetEvent(kFailed);
        return true;
      });
  _demuxer->Set("io", static_cast<base::IO*>(&_io));
  if (video != 0) _demuxer->Set("plyVidCtrl", video);
  if (preload && !(_demuxer->Set("preloadsz", *preload) && _demuxer->Set("vlcPreload", true)))
    throw Error(kIo, path + ": the cache cannot be created");
  for (std::size_t i = 0; i < outputs; ++i) {
    _inputs.push_back(AddInput());
    if (!stream::IPort::Link(*_demuxer->AddOutput(), *_inputs.back()))
      throw Error(kIo, path + ": the demuxer cannot be linked");
  }
  // The demuxer with a cache also opens files that it cannot play.
  if (!_demuxer->StatusChange(IStatus::kOpen))
    throw Error(kUnusable, path + ": the demuxer cannot open it");
  _opened = !std::exchange(_waiting, false);
  static_cast<void>(ISink::StatusChange(IStatus::kRunning));  // a sink without steps of its own
}

Player::~Player() {
  {
    std::lock_guard lock(_mutex);
    _closing = true;
  }
  _changed.notify_all();
  static_cast<void>(_demuxer->StatusChange(IStatus::kClosed));
  static_cast<void>(ISink::StatusChange(IStatus::kClosed));
}

std::size_t Player::TrackOf(stream::IMedia& media) {
  int track = 0, id = 0;
  media.Get("track", track);
  media.Get("id", id);
  _packetSources[static_cast<std::size_t>(track)] = static_cast<std::size_t>(id);
  return static_cast<std::size_t>(track);
}

std::vector<std::size_t> Player::Published() {
  std::vector<std::size_t> tracks;
  for (stream::IPort* input : _inputs)
    if (auto const media = input->Media()) tracks.push_back(TrackOf(*media));
  return tracks;
}

// Selects one after the other until the last one.
std::vector<std::size_t> Player::Videos() {
  std::vector<std::size_t> tracks;
  for (unsigned video = 0;; ++video) {
    _demuxer->Set("plyVidCtrl", video);
    auto const found = std::find_if(_inputs.begin(), _inputs.end(), [](stream::IPort* input) {
      return input->Media() && input->Media()->IsVideo();
    });
    if (found == _inputs.end()) break;
    std::size_t const track = TrackOf(*(*found)->Media());
    if (!tracks.empty() && tracks.back() == track) break;
    tracks.push_back(track);
  }
  _demuxer->Set("plyVidCtrl", _video);
  return tracks;
}

bool Player::ReceivePacket(stream::Packet& packet, void* context) {
  std::unique_lock lock(_mutex);
  auto const input = std::find(_inputs.begin(), _inputs.end(), context);
  _packet.output = static_cast<std::size_t>(input - _inputs.begin());
  _packet.seq = packet.Seq();
  _packet.pts_ms = packet.Pts() / 1000000;
  _packet.duration_ms = packet.Duration() / 1000000;
  _packet.size = packet.Size();
  _packet.key = packet.IsKey();
  _packet.eos = (packet.Flags() & stream::Packet::kEndOfStream) != 0;
  _packet.offset = _demuxer->Stream()->Tell() - packet.Size();
  _event = kPacket;
  _waiting = _held = true;
  _changed.notify_all();
  _changed.wait(lock, [this] { return !_held || _closing; });
  return true;
}

int64 Player::FailedAt() const {
  int64 const refused = _io.Refused();
  return refused >= 0 ? refused : _demuxer->Stream()->Tell();
}

void Player::SetEvent(Event event) {
  std::lock_guard lock(_mutex);
  _event = event;
  _waiting = true;
  _changed.notify_all();
}

Player::Event Player::Next(Delivered& packet) {
  // A signal does not wake a waiting thread.
  constexpr auto kSlice = std::chrono::milliseconds(50);
  if (_demuxer->CurrentStatus() == IStatus::kOpen && !_demuxer->StatusChange(IStatus::kRunning))
    return kFailed;
  std::unique_lock lock(_mutex);
  // Release only a packet that was returned: after a seek at the end another one may wait already.
  if (!_waiting) _held = false;
  _changed.notify_all();
  while (!_changed.wait_for(lock, kSlice, [this] { return _waiting; }))
    if (Interrupted()) return kInterrupted;
  _waiting = false;
  if (_event == kPacket) packet = _packet;
  return Interrupted() ? kInterrupted : _event;
}

}  // namespace kestro::tool
