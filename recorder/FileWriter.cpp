#include "recorder/FileWriter.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/File.h"
#include "base/IClass.h"
#include "recorder/Refusal.h"
#include "recorder/StorageOf.h"

namespace kestro::record {

using stream::IMuxer;

static constexpr char kSpillDrive = 'S';

static Refusal Unfit() { return {Code::kPlugin, "the plug-in's muxer refuses a required setting"}; }

FileWriter::FileWriter(RecorderOptions const& options, std::string const& path,
                       std::string const& isft, Tracks const& tracks, Packets const& packets)
    : _options(options), _path(path), _packets(packets) {
  bool const syncs = options.sync.mode != SyncOptions::kOff;
  _muxer = base::Make<IMuxer>(syncs ? "VFIAviMuxer-avi-muxer-vfi" : "AviMuxer-avi-muxer");
  if (!_muxer)
    throw Refusal(Code::kPlugin,
                  syncs ? "the plug-in was built without syncing" : "the plug-in has no muxer");
  _muxer->OnMessage(
      [this](stream::IElement&, char const* type, char const* text, base::AttrSet const* attrs) {
        char const* const reason = attrs != nullptr ? attrs->Find("reason") : nullptr;
        Note(type, text != nullptr ? text : type, reason != nullptr ? reason : "");
        return true;
      });
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    _ports.push_back(_muxer->AddInput());
    if (!_ports.back()->Offer(packets.Media(i)))
      throw Refusal(Code::kUnsupported, tracks[i].name + ": the muxer does not accept this track");
  }
  Configure(tracks, isft);
  for (auto const& [name, value] : options.properties) {
    if (SyncPlan::Owns(name) && syncs)
      throw Refusal(Code::kInvalid, name + ": the sync mode sets this property");
    if (!_muxer->Set(name.c_str(), value))
      throw Refusal(Code::kInvalid, "the muxer does not accept " + name + "=" + value);
  }
  if (syncs) ConfigureSync(tracks);
}

bool FileWriter::Open() {
  if (_options.storage == nullptr) {
    // Absolute: the host would read "S:/name" as a name on a drive.
    _muxer->Set("path", std::filesystem::absolute(_path).string());
  } else {
    _output = _options.storage->Open(_path, "rwbc");
    if (!_output) _errors.push_back(_path + ": " + std::strerror(errno));
    _muxer->Set("io", _output.get());
  }
  _open = _errors.empty() && _muxer->StatusChange(stream::IStatus::kRunning);
  return _open;
}

FileWriter::~FileWriter() {
  if (_open) Close();
}

// A fault that lasts is reported once; some name the file themselves.
void FileWriter::Note(std::string const& type, std::string const& text, std::string const& reason) {
  if (type != "error" && type != "warning") return;
  auto& list = type == "error" ? _errors : _warnings;
  std::string const whole = text.find(_path) == text.npos ? _path + ": " + text : text;
  if (_index.at != 0 && reason == "index-full")
    _index.full = whole;
  else if (std::find(list.begin(), list.end(), whole) == list.end())
    list.push_back(whole);
}

void FileWriter::Configure(Tracks const& tracks, std::string const& isft) {
  auto const first = [&tracks](bool unnumbered) {  // video track; unnumbered ones are the last
    return std::find_if(tracks.begin(), tracks.end(), [unnumbered](TrackInfo const& info) {
      return info.IsVideo() && (unnumbered || info.Numbered());
    });
  };
  if (auto const video = first(true); video != tracks.end())
    _muxer->Set("constFrameRate", video->frameRate);
  auto const tagged = first(false);
  if (tagged == tracks.end() && !(_options.tags.strd.empty() && _options.tags.strn.empty()))
    throw Refusal(Code::kInvalid, "strd and strn need an H.264 or HEVC track");
  auto const video = static_cast<std::size_t>(tagged - tracks.begin());
  _tags = std::make_unique<Tags>(_options.tags, isft, tracks.size(), video);
  if (_options.cacheBlocks != 0 && !_muxer->Set("cacheBlocks", _options.cacheBlocks)) throw Unfit();
  if (!_muxer->Set("vidtag", _tags->Get())) throw Unfit();
  if (_options.spillSeconds) ConfigureSpill();
}

void FileWriter::ConfigureSync(Tracks const& tracks) {
  base::Fraction rate;
  _muxer->Get("constFrameRate", rate);
  SyncPlan const plan(_options.sync, tracks, rate, *_tags);
  bool taken = plan.Apply(*_muxer);
  _room = plan.Entries();
  _index.at = plan.EntriesAt();
  _index.data = plan.DataAt();
  for (TrackInfo const& info : tracks) _index.codecs.push_back(info.codec);
  if (_options.sync.mode == SyncOptions::kCallback) {
    _side = std::make_unique<SideFile>(_path, StorageOf(_options));
    taken = taken && _side->Attach(*_muxer);
  }
  if (!taken) throw Unfit();
}

void FileWriter::ConfigureSpill() {
  if (!_options.spillFolder.empty()) {
    // The muxer would report this only when it first writes the file.
    if (access(_options.spillFolder.c_str(), W_OK | X_OK) != 0)
      _warnings.push_back(_options.spillFolder + ": " + std::strerror(errno) +
                          ": the index stays in memory");
    base::File::Mount(kSpillDrive, _options.spillFolder.c_str());
    _muxer->Set("diskName", kSpillDrive);
  }
  _muxer->Set("listfile", *_options.spillSeconds);
}

bool FileWriter::Push(std::size_t track, stream::Packet& packet) {
  if (!_open && !Open()) return false;
  std::int64_t const end_ns = packet.Pts() + packet.Duration();
  if (!_ports[track]->Push(packet)) return false;
  auto const size = static_cast<std::uint64_t>(packet.Size());
  std::uint64_t const head = size % 2 + (_packets.Headed(track) ? 0 : 8);
  _heads += head;
  _written += size + head + 16;
  ++_pushed;
  if (size > 0 && ++_entries <= _room)
    _index.reach_ns = std::max(_index.reach_ns, end_ns);
  else if (size > 0 && _index.at != 0)
    _index.beyond.push_back(packet.IsKey() && _index.codecs[track] <= TrackInfo::kMjpeg);
  return true;
}

std::uint64_t FileWriter::Size() {
  long long size = 0;
  _muxer->Set("sizeGet", &size);
  std::uint64_t const second = _index.at != 0 && _options.sync.ordinary ? 8 + 16 * _entries : 0;
  return static_cast<std::uint64_t>(size) + _heads +
         second;  // the muxer leaves out headers and padding
}

bool FileWriter::Close() {
  if (!std::exchange(_open, false)) return _errors.empty();
  bool const closed = _muxer->StatusChange(stream::IStatus::kClosed);
  bool const complete = closed && _errors.empty();
  _index.entries = _entries - _index.beyond.size();
  if (_side && complete) _side->Remove();
  if (_side && !complete && _pushed != 0)
    _warnings.push_back(_side->Path() + " is kept: it contains the last headers and index");
  if (_side && !_side->Fault().empty()) _warnings.push_back(_side->Fault());
  return complete;
}

}  // namespace kestro::record
