#include "Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "Errors.h"
#include "Suggest.h"
#include "Text.h"
#include "base/File.h"
#include "base/IClass.h"

namespace kestro::tool {

using stream::IMuxer;

static constexpr char kSpillDrive = 'S';

static Error Refused(base::PropertyList const& properties, std::string const& name,
                     std::string const& value) {
  if (properties.Find(name.c_str()) != nullptr)
    return Error(kUsage, "--set: the muxer refuses " + name + "=" + value +
                             " (the verb plugin lists its properties)");
  std::vector<std::string> names;
  for (auto const* list : {&properties.Own(), &properties.Inherited()})
    for (auto const& property : *list) names.push_back(property->Name());
  std::string const meant = DidYouMean(name, names);
  return Error(kUsage, "--set: the muxer has no property '" + name + "'" +
                           (meant.empty() ? " (the verb plugin lists them)" : meant));
}

static Error Unfit() { return Error(kIo, "the plug-in's muxer refuses what it should take"); }

Recorder::Recorder(RecorderOptions const& options, std::string const& path,
                   std::vector<Track*> const& tracks, Packets const& packets)
    : _path(path), _packets(packets) {
  bool const syncs = options.sync.mode != SyncOptions::kOff;
  char const* const alias = syncs ? "VFIAviMuxer-avi-muxer-vfi" : "AviMuxer-avi-muxer";
  base::AttrSet attrs;
  attrs.Add("Register", alias);
  _muxer.reset(base::IClass::New<IMuxer>(attrs));
  if (!_muxer || !_muxer->Configure(attrs))
    throw Error(kIo,
                syncs ? "--sync: the plug-in is built without it" : "the plug-in has no muxer");
  _muxer->OnMessage(
      [this](stream::IElement&, char const* type, char const* text, base::AttrSet const*) {
        Note(type, text != nullptr ? text : type);
        return true;
      });
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    _ports.push_back(_muxer->AddInput());
    if (!_ports.back()->Offer(packets.Media(i)))
      throw Error(kUnusable, tracks[i]->Info().name + ": the muxer does not take it");
  }
  Configure(options, tracks);
  for (auto const& [name, value] : options.properties)
    if (!_muxer->Set(name.c_str(), value))
      throw Refused(base::IClass::Find(alias, true)->Properties(), name, value);
  if (syncs) ConfigureSync(options.sync, tracks);
  // Absolute: the host takes "S:/name" for a name on a drive.
  _muxer->Set("path", std::filesystem::absolute(path).string());
  if (!_muxer->StatusChange(stream::IStatus::kRunning))
    throw Error(kIo, "the muxer cannot be started");
  _open = true;
}

Recorder::~Recorder() {
  if (_open) Close();
}

// A fault that lasts is told once; some name the file themselves.
void Recorder::Note(std::string const& type, std::string const& text) {
  if (type != "error" && type != "warning") return;
  auto& list = type == "error" ? _errors : _warnings;
  std::string const whole = text.find(_path) == text.npos ? _path + ": " + text : text;
  if (std::find(list.begin(), list.end(), whole) == list.end()) list.push_back(whole);
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
  if (options.cacheBlocks != 0 && !_muxer->Set("cacheBlocks", options.cacheBlocks)) throw Unfit();
  if (!_muxer->Set("vidtag", _tags->Get())) throw Error(kIo, "the muxer takes no tag set");
  if (options.spillSeconds) ConfigureSpill(options);
}

void Recorder::ConfigureSync(SyncOptions const& options, std::vector<Track*> const& tracks) {
  base::Fraction rate;
  _muxer->Get("constFrameRate", rate);
  SyncPlan const plan(options, tracks, rate, *_tags);
  bool taken = plan.Apply(*_muxer);
  _room = plan.Entries();
  if (options.mode == SyncOptions::kCallback) {
    _side = std::make_unique<SideFile>(std::filesystem::absolute(_path));
    taken = taken && _side->Attach(*_muxer);
  }
  if (!taken) throw Unfit();
}

void Recorder::ConfigureSpill(RecorderOptions const& options) {
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

// An error under which the muxer goes on loses nothing: the reserve of the index is full.
void Recorder::ForgiveSince(std::size_t errors) {
  for (; _errors.size() > errors; _errors.pop_back()) {
    std::string text = _errors.back();
    if (_room != 0 && _entries > _room)
      text += " (the index reaches " + Seconds(_indexed_ns / 1000000) +
              "; --reserve-time or --reserve makes room for more)";
    _warnings.push_back(text);
  }
}

bool Recorder::Push(std::size_t track, stream::Packet& packet) {
  std::size_t const errors = _errors.size();
  std::int64_t const end_ns = packet.Pts() + packet.Duration();
  if (!_ports[track]->Push(packet)) return false;
  auto const size = static_cast<std::uint64_t>(packet.Size());
  std::uint64_t const head = size % 2 + (_packets.Headed(track) ? 0 : 8);
  _heads += head;
  _written += size + head + 16;
  ++_pushed;
  if (size > 0 && ++_entries <= _room) _indexed_ns = std::max(_indexed_ns, end_ns);
  ForgiveSince(errors);
  return true;
}

std::uint64_t Recorder::Size() {
  long long size = 0;
  _muxer->Set("sizeGet", &size);
  return static_cast<std::uint64_t>(size) + _heads;  // which it leaves out, and pads
}

bool Recorder::Close() {
  _open = false;
  std::size_t const errors = _errors.size();
  bool const closed = _muxer->StatusChange(stream::IStatus::kClosed);
  if (closed && _muxer->CheckIO()) ForgiveSince(errors);
  bool const complete = closed && _errors.empty();
  if (_side && complete) _side->Remove();
  if (_side && !complete && _pushed != 0)
    _warnings.push_back(_side->Path() + " is kept: it has the last headers and index");
  if (_side && !_side->Fault().empty()) _warnings.push_back(_side->Fault());
  return complete;
}

}  // namespace kestro::tool
