#include "ExtractVerb.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

#include "Console.h"
#include "Errors.h"
#include "InfoVerb.h"
#include "Interrupt.h"
#include "Text.h"
#include "output/ContainerFile.h"

namespace kestro::tool {

namespace fs = std::filesystem;

void ExtractVerb::AddTo(CLI::App& app) {
  app.add_option("FILE", _file, "An AVI file")->required()->type_name("");
  auto* track = app.add_option("--track", _wishes, "Write a track; tracks may share a container")
                    ->type_name("N:OUT")
                    ->take_all()
                    ->expected(1)
                    ->allow_extra_args(false);
  app.add_option("-o,--output", _folder, "Write every track into this folder")
      ->type_name("DIR")
      ->excludes(track);
  app.add_flag("--force", _force, "Overwrite files");
  app.footer(
      "Nothing is encoded. The ending of OUT decides: .h264 or .264 (.h265, .hevc) for a video\n"
      "stream, .wav for sound, anything else a container that libavformat writes. Without --track\n"
      "and -o the tracks are listed.\n\n"
      "Examples:\n"
      "  kestro-avi extract out.avi\n"
      "  kestro-avi extract -o tracks out.avi\n"
      "  kestro-avi extract --track 0:film.mkv --track 1:film.mkv out.avi");
}

static std::string Ending(std::string const& path) {
  std::string ending = fs::path(path).extension();
  for (char& c : ending)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 'a' - 'A');
  return ending;
}

// The codec of an elementary stream's ending; empty for any other.
static std::string StreamCodec(std::string const& ending) {
  if (ending == ".h264" || ending == ".264") return "h264";
  if (ending == ".h265" || ending == ".265" || ending == ".hevc") return "hevc";
  return "";
}

std::string ExtractVerb::TrackName(std::size_t track) const {
  return _file + ", track " + std::to_string(track);
}

// What a track would be called; empty when it cannot be written.
std::string ExtractVerb::NameFor(AviFile const& avi, std::size_t track) const {
  AviTrack const& info = avi.Tracks()[track];
  if (CodecOf(info) == AV_CODEC_ID_NONE || info.chunks == 0) return "";
  std::string const ending = info.type == "audio"   ? ".wav"
                             : info.codec == "h264" ? ".h264"
                                                    : ".h265";
  return fs::path(_file).stem().string() + "-" + std::to_string(track) + ending;
}

void ExtractVerb::ListTracks(AviFile const& avi) const {
  std::string text = _file + ": " + std::to_string(avi.Tracks().size()) + " tracks\n";
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i) {
    std::string const name = NameFor(avi, i);
    text += TrackText(avi.Tracks()[i], i);
    text += name.empty() ? "    cannot be extracted\n"
                         : "    --track " + std::to_string(i) + ":" + name + "\n";
  }
  WriteData(text + "Several tracks may share a container, such as .mkv; -o DIR writes all.\n");
}

static bool Same(fs::path const& a, fs::path const& b) {
  return fs::absolute(a).lexically_normal() == fs::absolute(b).lexically_normal();
}

void ExtractVerb::AskedTargets(AviFile const& avi) {
  for (std::string const& wish : _wishes) {
    std::size_t const sign = wish.find(':');
    std::string const number = wish.substr(0, sign);
    if (sign == std::string::npos || sign + 1 == wish.size() || number.empty() ||
        number.size() > 3 || number.find_first_not_of("0123456789") != std::string::npos)
      throw Error(kUsage, "--track: \"" + wish + "\" is not N:OUT");
    std::size_t const track = std::stoul(number);
    if (track >= avi.Tracks().size())
      throw Error(kUsage, "--track: " + _file + " has tracks 0 to " +
                              std::to_string(avi.Tracks().size() - 1));
    std::string const path = wish.substr(sign + 1);
    auto target = std::find_if(_targets.begin(), _targets.end(),
                               [&path](Target const& known) { return Same(known.path, path); });
    if (target == _targets.end()) target = _targets.insert(target, {path, {}});
    if (std::count(target->tracks.begin(), target->tracks.end(), track) != 0)
      throw Error(kUsage, "--track: \"" + wish + "\" is there twice");
    target->tracks.push_back(track);
  }
}

void ExtractVerb::AllTargets(AviFile const& avi) {
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i) {
    std::string const name = NameFor(avi, i);
    if (!name.empty()) {
      _targets.push_back({(fs::path(_folder) / name).string(), {i}});
      continue;
    }
    AviTrack const& track = avi.Tracks()[i];
    Report("warning: " + TrackName(i) + ": " + track.type + " " + track.codec +
           (track.chunks == 0 ? " without data" : " cannot be extracted"));
    _findings = true;
  }
  if (_targets.empty()) throw Error(kUnusable, _file + ": no track can be extracted");
  std::error_code failed;
  fs::create_directories(_folder, failed);
  if (failed) throw Error(kIo, _folder + ": " + failed.message());
}

ExtractVerb::Form ExtractVerb::FormOf(AviFile const& avi, Target const& target) const {
  std::string const ending = Ending(target.path), stream = StreamCodec(ending);
  if (stream.empty() && ending != ".wav") {
    if (!ContainerFile::Known(target.path))
      throw Error(kUsage, target.path + ": its ending names no file format");
    return Form::kContainer;
  }
  AviTrack const& track = avi.Tracks()[target.tracks[0]];
  if (target.tracks.size() > 1)
    throw Error(kUsage, target.path + ": a file of this kind holds one track");
  if (track.codec != (stream.empty() ? "pcm" : stream))
    throw Error(kUsage, target.path + ": " + TrackName(target.tracks[0]) + " is " + track.type +
                            " " + track.codec + ", which does not go with this ending");
  return stream.empty() ? Form::kWave : Form::kStream;
}

void ExtractVerb::CheckTargets(AviFile const& avi) const {
  for (Target const& target : _targets) {
    std::error_code none;
    FormOf(avi, target);
    for (std::size_t track : target.tracks) {
      AviTrack const& info = avi.Tracks()[track];
      if (CodecOf(info) == AV_CODEC_ID_NONE)
        throw Error(kUnusable, TrackName(track) + ": " + info.type + " " + info.codec +
                                   " cannot be extracted");
      if (info.chunks == 0) throw Error(kUnusable, TrackName(track) + ": holds no data");
    }
    auto const status = fs::status(target.path, none);
    if (!fs::exists(status)) continue;
    if (!fs::is_regular_file(status)) throw Error(kIo, target.path + ": is not a file");
    if (fs::equivalent(target.path, _file, none))
      throw Error(kUsage, target.path + ": is the input");
    if (!_force) throw Error(kUsage, target.path + ": exists already (--force overwrites it)");
  }
}

// Containers want to know when each frame is shown, before the first one is written.
void ExtractVerb::OrderFrames(AviFile& avi) {
  _orders.resize(avi.Tracks().size());
  std::vector<bool> wanted(avi.Tracks().size());
  for (Target const& target : _targets)
    for (std::size_t track : target.tracks) {
      if (FormOf(avi, target) != Form::kContainer || avi.Tracks()[track].type != "video") continue;
      wanted[track] = true;
      if (!_orders[track])
        _orders[track] = std::make_unique<FrameOrder>(CodecOf(avi.Tracks()[track]));
    }
  if (std::count(wanted.begin(), wanted.end(), true) == 0) return;
  TrackReader(avi, wanted).ForEach([this](std::size_t track, Piece const& piece) {
    FrameOrder& order = *_orders[track];
    while (order.Count() < piece.position) order.Add(nullptr, 0);
    order.Add(piece.data, piece.size);
    return !Interrupted();
  });
  for (auto const& order : _orders)
    if (order) order->Sort();
}

void ExtractVerb::OpenOutputs(AviFile const& avi) {
  for (Target const& target : _targets) {
    std::vector<ContainerTrack> tracks;
    for (std::size_t track : target.tracks)
      tracks.push_back({TrackName(track), &avi.Tracks()[track], _orders[track].get()});
    switch (FormOf(avi, target)) {
      case Form::kStream:
        _outputs.push_back(std::make_unique<StreamFile>(target.path));
        break;
      case Form::kWave:
        _outputs.push_back(std::make_unique<WaveFile>(target.path, *tracks[0].track));
        break;
      case Form::kContainer:
        _outputs.push_back(std::make_unique<ContainerFile>(target.path, tracks));
        break;
    }
  }
}

int ExtractVerb::Copy(AviFile& avi) {
  std::vector<std::vector<std::pair<Output*, std::size_t>>> sinks(avi.Tracks().size());
  std::vector<bool> wanted(avi.Tracks().size());
  for (std::size_t i = 0; i < _targets.size(); ++i)
    for (std::size_t n = 0; n < _targets[i].tracks.size(); ++n) {
      std::size_t const track = _targets[i].tracks[n];
      sinks[track].emplace_back(_outputs[i].get(), n);
      wanted[track] = true;
    }
  TrackReader reader(avi, wanted);
  reader.ForEach([&sinks](std::size_t track, Piece const& piece) {
    for (auto const& [output, number] : sinks[track]) output->Write(number, piece);
    return !Interrupted();
  });
  if (Interrupted()) return kInterrupted;
  for (std::string const& fault : reader.Faults()) Report("warning: " + _file + ": " + fault);
  for (std::size_t i = 0; i < _targets.size(); ++i) {
    _outputs[i]->Finish();
    std::error_code none;
    Report(_targets[i].path + ": " + ByteCount(fs::file_size(_targets[i].path, none)));
  }
  return _findings || !reader.Faults().empty() ? kFindings : kOk;
}

int ExtractVerb::Run() {
  AviFile avi(_file);
  if (_wishes.empty() && _folder.empty()) {
    ListTracks(avi);
    return kOk;
  }
  if (_folder.empty())
    AskedTargets(avi);
  else
    AllTargets(avi);
  CheckTargets(avi);
  CatchSignals();
  for (std::string const& note : avi.Notes()) Report("note: " + _file + ": " + note);
  if (!avi.Indexed()) {
    Report("note: " + _file +
           ": the index is missing or does not tell all; the chunks in movi are taken");
    _findings = avi.CutOff() || avi.IndexBase() < 0;
  }
  OrderFrames(avi);
  if (Interrupted()) return kInterrupted;
  OpenOutputs(avi);
  return Copy(avi);
}

}  // namespace kestro::tool
