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
  std::vector<base::Ref<IMedia>> published;
  bool parsed;
  unsigned chosen;
  {
    std::lock_guard lock(_lock);
    chosen = _videoIndex;
    parsed = parseFile();
    if (parsed) UpdateMediaInfo();
    unsigned videos = 0;
    for (IStream* stream : _streams) {
      stream->DemuxEosFlags(_eosFlags);
      bool const plays = stream->IsVideo() && videos++ == chosen;
      if (plays || stream->IsAudio())
        published.push_back(base::Ref<IMedia>::Share(stream->Media()));
    }
  }
  ReportFault();
  if (!parsed) {
    KESTRO_ERROR("!parseFile()");
    IDemuxer::Close();
    return false;
  }
  for (auto const& media : published) Publish(media.get());
  std::lock_guard lock(_lock);
  if (_videoIndex != chosen) PublishVideo();  // plyVidCtrl chose another in the meantime
  _process = &IAviDemux::ProcessNormal;
  return true;
}

bool AviDemuxer::Close() {
  Stop();
  {
    std::lock_guard lock(_lock);
    _process = nullptr;  // no track is published from now on
  }
  Withdraw();
  std::lock_guard lock(_lock);
  if (Stream() != nullptr)
    IAviDemux::Close(*Stream());
  else
    clearStream();
  return IDemuxer::Close();
}

bool AviDemuxer::parseFile() {
  if (!_streams.empty()) return true;
  _fault.clear();
  if (!Covered() && !IIO::Open("rb")) {
    _fault = Why();
    return false;
  }
  bool const opened = IAviDemux::Open(*Stream());
  if (Incomplete()) _fault = "reading failed";  // nothing later would report it
  return opened;
}

void AviDemuxer::ReportFault() {
  std::string fault;
  {
    std::lock_guard lock(_lock);
    fault.swap(_fault);
  }
  if (!fault.empty()) SendMessageUp("error", fault.c_str(), nullptr);
}

bool AviDemuxer::ParseFile(std::function<bool(IMedia*)> callback) {
  std::vector<base::Ref<IMedia>> reported;
  bool parsed;
  {
    std::lock_guard lock(_lock);
    parsed = parseFile();
    bool videoSeen = false;
    for (IStream* stream : _streams) {
      if (stream->Media() == nullptr || (videoSeen && !stream->IsAudio())) continue;
      reported.push_back(base::Ref<IMedia>::Share(stream->Media()));
      videoSeen = videoSeen || stream->IsVideo();
    }
  }
  ReportFault();
  if (!parsed || !callback) return parsed;
  for (auto const& media : reported)
    if (!callback(media.get())) break;
  return true;
}

// Reads the first packet of each video track: its data completes what the headers say.
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
  if (watch.Failed()) _fault = "reading failed";
  return complete;
}

// Offers media to the outputs, until one takes it.
bool AviDemuxer::Publish(IMedia* media) {
  return std::any_of(_ports.begin(), _ports.end(), [media](auto const& port) {
    return !port->IsInput() && port->Match(media->Codec()) && port->Offer(media);
  });
}

// Publishes the chosen video track in place of the one that an output has.
void AviDemuxer::PublishVideo() {
  IStream const* const chosen = VideoStream(_videoIndex);
  if (chosen == nullptr) return;
  for (auto const& port : _ports) {
    if (port->IsInput() || port->Carries(chosen->Media())) continue;
    for (IStream const* stream : _streams)
      if (stream->IsVideo() && port->Carries(stream->Media())) port->Withdraw();
  }
  Publish(chosen->Media());
}

// Refuses a call from a thread that already holds the lock: it would wait for itself.
bool AviDemuxer::Refused(char const* what) const {
  if (_lock.Mine())
    KESTRO_ERROR(std::string("_lock.Mine(),from inside a call of the element: ") + what);
  return _lock.Mine();
}

Packet* AviDemuxer::GeneratePacket(void*) {
  if (Refused("GeneratePacket")) return nullptr;
  std::lock_guard lock(_lock);
  BeginTurn();
  if (_process == nullptr || Stream() == nullptr) return nullptr;
  if (_notify == nullptr) return (this->*_process)(*Stream());
  base::IOCallBack io(*Stream(), _notifyId, _notify);
  return (this->*_process)(io);
}

bool AviDemuxer::Seek(int64 ms) {
  if (Refused("Seek")) return false;
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
  if (Refused("PlayModeSwitch")) return false;
  std::lock_guard lock(_lock);
  if (index >= std::size(processes)) return false;
  if (_process != processes[index]) _currentPts = -1;
  _process = processes[index];
  ClearEnd();
  return true;
}

bool AviDemuxer::plyVidCtrl(unsigned id) {
  KESTRO_ERROR("Play Stream ID:" + std::to_string(id));
  if (Refused("plyVidCtrl")) return false;
  std::lock_guard lock(_lock);
  _videoIndex = id;
  if (_process != nullptr) PublishVideo();  // otherwise Open will
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
