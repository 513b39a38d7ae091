#include "Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Errors.h"
#include "base/File.h"
#include "base/IClass.h"

namespace kestro::tool {

using base::Ref;
using stream::IMedia;
using stream::IMuxer;

static constexpr char kSpillDrive = 'S';

// The header of a chunk, which the stream of motion JPEG leaves to whoever makes its packets:
// "NNdc" with the track's number, and the size, little-endian.
static constexpr std::size_t kChunkHead = 8;

static void WriteChunkHead(std::size_t track, std::size_t size, std::uint8_t* out) {
  out[0] = static_cast<std::uint8_t>('0' + track / 10 % 10);
  out[1] = static_cast<std::uint8_t>('0' + track % 10);
  out[2] = 'd';
  out[3] = 'c';
  for (std::size_t i = 0; i < 4; ++i) out[4 + i] = static_cast<std::uint8_t>(size >> 8 * i);
}

static Error Refused(std::string const& name, std::string const& value) {
  return Error(kUsage, "--set: the muxer refuses " + name + "=" + value +
                           " (the verb plugin lists its properties)");
}

Recorder::Recorder(RecorderOptions const& options, std::string const& path,
                   std::vector<Track*> const& tracks) {
  base::AttrSet attrs;
  attrs.Add("Register", "avi-muxer");
  _muxer.reset(base::IClass::New<IMuxer>(attrs));
  if (!_muxer || !_muxer->Configure(attrs)) throw Error(kIo, "the plug-in has no muxer");
  _muxer->OnMessage([this](stream::IElement&, char const* type, char const* text) {
    Note(type, text != nullptr ? text : type);
    return true;
  });

  for (Track const* track : tracks) AddTrack(track->Info());
  Configure(options, tracks);
  for (auto const& [name, value] : options.properties)
    if (!_muxer->Set(name.c_str(), std::string(value))) throw Refused(name, value);
  _muxer->Set("path", path);
  if (!_muxer->StatusChange(stream::IStatus::kRunning))
    throw Error(kIo, "the muxer cannot be started");
  _open = true;
}

Recorder::~Recorder() {
  if (_open) Close();
}

// A fault that lasts is told once.
void Recorder::Note(std::string const& type, std::string const& text) {
  if (type != "error" && type != "warning") return;
  auto& list = type == "error" ? _errors : _warnings;
  if (std::find(list.begin(), list.end(), text) == list.end()) list.push_back(text);
}

void Recorder::AddTrack(TrackInfo const& info) {
  auto const media = Ref<IMedia>::Take(IMedia::New(info.codec));
  switch (info.kind) {
    case TrackInfo::kVideo:
      media->Set("width", info.width);
      media->Set("height", info.height);
      media->Set("interlace", false);
      media->Set("framerate", info.frameRate);
      break;
    case TrackInfo::kSound:
      media->Set("rate", info.rate);
      media->Set("channel", info.channels);
      media->Set("width", info.bits / 8);
      media->Set("depth", info.bits);
      media->Set("samples", info.samples);
      break;
    case TrackInfo::kText:
      media->Set("framerate", info.frameRate);
      break;
  }
  stream::IPort* port = _muxer->AddInput();
  if (port == nullptr || !port->Offer(media.get()))
    throw Error(kUnusable, info.name + ": the muxer does not take it");
  _ports.push_back(port);
  _headed.push_back(std::strcmp(info.codec, "mjpg") == 0);
  _sequence.push_back(0);
}

void Recorder::Configure(RecorderOptions const& options, std::vector<Track*> const& tracks) {
  auto const first = [&tracks](bool unnumbered) {  // video track; unnumbered ones are the last
    return std::find_if(tracks.begin(), tracks.end(), [unnumbered](Track const* track) {
      TrackInfo const& info = track->Info();
      return info.kind == TrackInfo::kVideo && (unnumbered || !info.unnumbered);
    });
  };
  if (auto const video = first(true); video != tracks.end())
    _muxer->Set("constFrameRate", (*video)->Info().frameRate);
  auto const tagged = first(false);
  if (tagged == tracks.end() && options.tags.NeedVideo())
    throw Error(kUsage, "--strd and --strn need a track of H.264 or HEVC video");
  auto const video = static_cast<std::size_t>(tagged - tracks.begin());
  _tags = std::make_unique<Tags>(options.tags, tracks.size(), video);
  if (!_muxer->Set("vidtag", _tags->Get())) throw Error(kIo, "the muxer takes no tag set");
  if (!options.spillSeconds) return;
  if (!options.spillFolder.empty()) {
    // The muxer would tell only once there is something to spill.
    if (access(options.spillFolder.c_str(), W_OK | X_OK) != 0)
      _warnings.push_back(options.spillFolder + ": " + std::strerror(errno) +
                          ": the index stays in memory");
    base::File::Mount(kSpillDrive, options.spillFolder.c_str());
    _muxer->Set("diskName", kSpillDrive);
  }
  _muxer->Set("listfile", *options.spillSeconds);
}

bool Recorder::Push(std::size_t track, TimedPacket const& packet) {
  using stream::Packet;
  std::size_t const head = _headed[track] ? kChunkHead : 0;
  auto const made = Ref<Packet>::Take(Packet::New(static_cast<int>(head + packet.data.size())));
  if (head != 0) WriteChunkHead(track, packet.data.size(), made->Data());
  std::copy(packet.data.begin(), packet.data.end(), made->Data() + head);
  made->Media(_ports[track]->Media());
  made->Pts(packet.time_ns);
  made->Duration(packet.duration_ns);
  if (packet.key) made->Flags(Packet::kKey);
  made->Seq(_sequence[track]++);
  return _ports[track]->Push(*made) && _muxer->Check();
}

bool Recorder::Close() {
  _open = false;
  bool const closed = _muxer->StatusChange(stream::IStatus::kClosed);
  return closed && _muxer->Check() && _errors.empty();
}

}  // namespace kestro::tool
