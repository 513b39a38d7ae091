#include "AviDemux.h"

#include <algorithm>
#include <string>
#include <vector>

#include "common/ReadWatch.h"

namespace kestro::plugin::avi {

AviDemuxer::AviDemuxer() : IDemuxer("AviDemuxer") {
  _flags |= kDemuxer | kOpensFile | kSeveralTracks;
}

AviDemuxer::~AviDemuxer() { AviDemuxer::Close(); }

bool AviDemuxer::Open() {
  if (!ISource::Open()) {
    KESTRO_ERROR("!ISource::Open()");
    return false;
  }
  if (!parseFile()) {
    KESTRO_ERROR("!parseFile()");
    IDemuxer::Close();
    return false;
  }
  UpdateMediaInfo();
  unsigned videos = 0;
  for (IStream* stream : _streams) {
    stream->DemuxEosFlags(_eosFlags);
    bool const chosen = stream->IsVideo() && videos++ == _videoIndex;
    if (chosen || stream->IsAudio()) Publish(stream->Media());
  }
  _process = &IAviDemux::ProcessNormal;
  return true;
}

bool AviDemuxer::Close() {
  Stop();
  std::lock_guard lock(_lock);
  _process = nullptr;
  if (Stream() != nullptr)
    IAviDemux::Close(*Stream());
  else
    clearStream();
  return IDemuxer::Close();
}

bool AviDemuxer::parseFile() {
  if (!_streams.empty()) return true;
  if (!Covered() && !IIO::Open("rb")) {
    SendMessageUp("error", Why().c_str(), nullptr);
    return false;
  }
  bool const opened = IAviDemux::Open(*Stream());
  // What is missing now nothing later would report.
  if (Incomplete()) SendMessageUp("error", "reading failed", nullptr);
  return opened;
}

bool AviDemuxer::ParseFile(std::function<bool(IMedia*)> callback) {
  if (!parseFile()) return false;
  if (!callback) return true;
  bool videoSeen = false;
  for (IStream* stream : _streams) {
    if (stream->Media() == nullptr || (videoSeen && !stream->IsAudio())) continue;
    if (!callback(stream->Media())) break;
    videoSeen = videoSeen || stream->IsVideo();
  }
  return true;
}

// The coded data completes what the headers say of a video track: its first packet is looked at.
bool AviDemuxer::UpdateMediaInfo() {
  if (Stream() == nullptr) return false;
  ReadWatch watch(*Stream());
  base::IOCallBack io(watch, _notifyId, _notify);
  bool complete = true;
  for (IStream* stream : _streams) {
    if (!stream->IsVideo()) continue;
    Packet* const packet = stream->GetPacket(io, 0);
    complete = packet != nullptr && packet != Packet::ReadFailure();
    if (!complete) break;
    packet->Release();
  }
  Stream()->Seek(_moviOffset + 4, IO::kBegin);
  RestStream();
  if (watch.Failed()) SendMessageUp("error", "reading failed", nullptr);
  return complete;
}

bool AviDemuxer::Publish(IMedia* media) {
  return std::any_of(_ports.begin(), _ports.end(), [media](auto const& port) {
    return !port->IsInput() && port->Match(media->Codec()) && port->Offer(media);
  });
}

Packet* AviDemuxer::GeneratePacket(void*) {
  std::lock_guard lock(_lock);
  if (_process == nullptr || Stream() == nullptr) return nullptr;
  if (_notify == nullptr) return (this->*_process)(*Stream());
  base::IOCallBack io(*Stream(), _notifyId, _notify);
  return (this->*_process)(io);
}

bool AviDemuxer::Seek(int64 ms) {
  std::lock_guard lock(_lock);
  int64 time = ms;
  IStream const* last = nullptr;
  for (IStream* stream : _streams) {
    if (!stream->IsVideo()) continue;
    int64 own = ms;
    stream->SeekToKey(own);
    stream->DemuxExtFlags(_extFlags);
    time = own;
    last = stream;
  }
  for (IStream* stream : _streams) {
    if (stream == last) continue;
    int64 own = time;
    stream->SeekToKey(own);
    stream->DemuxExtFlags(_extFlags);
  }
  _currentPts = -1;  // backward play may deliver any frame again
  ClearEnd();
  return true;
}

bool AviDemuxer::PlayModeSwitch(PlayMode mode) {
  static constexpr PlayProcess processes[] = {&IAviDemux::ProcessNormal, &IAviDemux::ProcessFast,
                                              &IAviDemux::ProcessBack, &IAviDemux::ProcessVideo,
                                              &IAviDemux::ProcessAudio};
  auto const index = static_cast<std::size_t>(mode);
  std::lock_guard lock(_lock);
  if (index >= std::size(processes)) return false;
  if (_process != processes[index]) _currentPts = -1;
  _process = processes[index];
  ClearEnd();
  return true;
}

bool AviDemuxer::plyVidCtrl(unsigned id) {
  KESTRO_ERROR("Play Stream ID:" + std::to_string(id));
  base::Ref<IMedia> chosen;
  std::vector<base::Ref<IMedia>> videos;
  {
    std::lock_guard lock(_lock);
    _videoIndex = id;
    for (IStream* stream : _streams)
      if (stream->IsVideo()) videos.push_back(base::Ref<IMedia>::Share(stream->Media()));
    if (id < videos.size()) chosen = videos[id];
  }
  if (!chosen) return true;
  // Without the lock, which a sink may be waiting for: the port is free for the new track then.
  for (auto const& port : _ports) {
    if (port->IsInput() || port->Media() == nullptr) continue;
    if (port->Media() == chosen.get()) return true;
    for (auto const& video : videos)
      if (port->Media() == video.get()) port->Offer(nullptr);
  }
  Publish(chosen.get());
  return true;
}

base::PropertyList AviDemuxer::Properties() {
  base::PropertyList list;
  list.Setter<AviDemuxer, unsigned>("plyVidCtrl", &AviDemuxer::plyVidCtrl,
                                    "the video track to play, counted from 0");
  list.Inherit(IDemuxer::Properties());
  return list;
}

}  // namespace kestro::plugin::avi
