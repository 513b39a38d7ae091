#include "verbs/ExtractVerb.h"

#include <algorithm>
#include <filesystem>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/Plugin.h"
#include "cli/Text.h"
#include "media/MediaModule.h"
#include "media/NumberedFiles.h"
#include "media/TextFile.h"
#include "media/WaveFile.h"
#include "verbs/TrackText.h"
#include "verify/ReadAnnexB.h"

namespace kestro::tool {

void ExtractVerb::AddTo(Options& options) {
  options.Text("FILE", _file, "", "The AVI file").Required();
  auto const track =
      options.Texts("--track", _tracks, "N:OUT", "Write a track; several may go to one container");
  options.Text("-o,--output", _folder, "DIR", "Write every track into this folder").Excludes(track);
  options.Text("--strd", _streamData, "FILE",
               "Write the content of the first video track's strd chunk");
  options.Text("--from", _from, "T", "Begin with the key frame at or before this time");
  options.Text("--to", _to, "T", "End at this time");
  options.Text("--plugin", _plugin, "PATH", "The plug-in or its folder, for --strd");
  options.Flag("--force", _force, "Overwrite files");
  _json.AddTo(options);
  _progress.AddTo(options);
  options.Footer(
      "Examples:\n"
      "  kestro-avi extract out.avi\n"
      "  kestro-avi extract -o tracks out.avi\n"
      "  kestro-avi extract --track 0:film.mkv --track 1:film.mkv out.avi\n"
      "  kestro-avi extract --track 2:film.srt --track 3:shot-%04d.jpg out.avi\n"
      "  kestro-avi extract --from 1:30 --to 2:00 --track 0:- out.avi | ffplay -\n\n"
      "Nothing is encoded; length-prefixed video gets start codes. The extension of OUT selects\n"
      "the format: .h264 or .264, .h265 or .hevc, .mjpeg or .mjpg for a video stream, .wav for\n"
      "audio, .srt or .jsonl for text, a pattern such as shot-%04d.jpg for one file per picture\n"
      "(.txt: per text), any other extension for a container of libavformat. Without --track, -o\n"
      "and --strd the tracks are listed. OUT may be - for standard output: a stream, WAV or "
      "SRT.\n\n"
      "A part begins with the key frame of the first video track at or before --from, and so do\n"
      "all tracks: audio is cut there to the sample.\n\n"
      "\"play\" does not show text and motion JPEG, which the demuxer does not read; \"extract\" "
      "reads\n"
      "them from the file. The file stores no time for a text: it gets the time of the next frame\n"
      "of the first video track or, without video, a time from the rate of its own track.");
}

void ExtractVerb::ListTracks(avi::AviFile const& avi) const {
  Targets const targets(avi, _file);
  Json tracks = Json::array();
  std::string text = Shown(_file) + ": " + std::to_string(avi.Tracks().size()) + " tracks\n";
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i) {
    std::string const name = targets.NameFor(i);
    tracks.push_back(TrackJson(avi, i));
    tracks.back()["target"] = name.empty() ? Json() : Json(name);
    text += TrackText(avi, i);
    text += name.empty() ? "    cannot be extracted\n"
                         : "    --track " + std::to_string(i) + ":" + Shown(name) + "\n";
  }
  SetAnswer({{"file", _file}, {"tracks", std::move(tracks)}});
  if (_json) return;
  WriteData(text +
            "Several tracks may go to one container, such as .mkv; -o DIR writes all tracks.\n");
}

static bool NeedsOrder(avi::AviTrack const& track, Target const& target) {
  return target.form == Target::kContainer && (track.codec == "h264" || track.codec == "hevc");
}

// The total for the progress. Tracks whose frames are ordered first are read twice.
std::uint64_t ExtractVerb::BytesToRead(avi::AviFile const& avi, Targets const& targets) const {
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i) {
    bool selected = false, ordered = false;
    for (Target const& target : targets.List()) {
      bool const here =
          std::find(target.tracks.begin(), target.tracks.end(), i) != target.tracks.end();
      selected = selected || here;
      ordered = ordered || (here && NeedsOrder(avi.Tracks()[i], target));
    }
    bytes += avi.Tracks()[i].bytes * (std::uint64_t{selected} + std::uint64_t{ordered});
  }
  return bytes;
}

// Reads the selected tracks until it is interrupted. Returns what is wrong with their data.
std::vector<std::string> ExtractVerb::ReadTracks(avi::AviFile& avi,
                                                 std::vector<bool> const& selected,
                                                 Progress& progress, PieceSink const& sink) {
  return ReadAnnexB(
      avi, selected,
      [&](std::size_t track, avi::Piece const& piece, std::size_t stored) {
        sink(track, piece);
        progress.Update(_done += stored);
        return !Interrupted();
      },
      _range ? &*_range : nullptr);
}

// Containers store when each frame is shown, which must be known before the first one is written.
void ExtractVerb::OrderFrames(avi::AviFile& avi, Targets const& targets, Progress& progress) {
  _orders.resize(avi.Tracks().size());
  std::vector<bool> selected(avi.Tracks().size());
  for (Target const& target : targets.List())
    for (std::size_t track : target.tracks) {
      if (!NeedsOrder(avi.Tracks()[track], target)) continue;
      selected[track] = true;
      if (!_orders[track])
        _orders[track] =
            std::make_unique<FrameOrder>(LoadMedia().NewFrameParser(avi.Tracks()[track]));
    }
  if (std::count(selected.begin(), selected.end(), true) == 0) return;
  ReadTracks(avi, selected, progress, [&](std::size_t track, avi::Piece const& piece) {
    FrameOrder& order = *_orders[track];
    while (order.Count() < piece.position) order.Add(nullptr, 0);
    order.Add(piece.data, piece.size);
  });
  for (auto const& order : _orders)
    if (order) order->Sort();
}

std::unique_ptr<Output> ExtractVerb::OpenOutput(avi::AviFile const& avi, Targets const& targets,
                                                Target const& target) const {
  avi::AviTrack const& clock = _described[avi.ClockOf(target.tracks[0])];
  std::vector<ContainerTrack> tracks;
  for (std::size_t track : target.tracks)
    tracks.push_back({targets.TrackName(track), &_described[track], _orders[track].get()});
  switch (target.form) {
    case Target::kWave:
      return std::make_unique<WaveFile>(target.path, *tracks[0].track);
    case Target::kSrt:
      return std::make_unique<SrtFile>(target.path, clock);
    case Target::kJsonLines:
      return std::make_unique<JsonLinesFile>(target.path, clock);
    case Target::kNumbered:
      return std::make_unique<NumberedFiles>(target.path);
    case Target::kContainer:
      return LoadMedia().NewContainer(target.path, tracks);
    default:
      return std::make_unique<StreamFile>(target.path);
  }
}

void ExtractVerb::AddWritten(std::string const& path, std::vector<std::size_t> const& tracks,
                             Written const& written) {
  _written.push_back(
      {{"file", path}, {"tracks", tracks}, {"files", written.files}, {"bytes", written.bytes}});
  SetAnswer({{"file", _file}, {"outputs", _written}});
}

int ExtractVerb::Finish(Targets const& targets, std::vector<std::string> const& faults) {
  std::vector<std::string> warnings;
  warnings.reserve(faults.size() + _outputs.size());
  for (std::string const& fault : faults) warnings.push_back(_file + ": " + fault);
  for (std::size_t i = 0; i < _outputs.size(); ++i) {
    std::string const& path = targets.List()[i].path;
    Written const written = _outputs[i]->Finish();
    bool const numbered = targets.List()[i].form == Target::kNumbered;
    Report((path == "-" ? "standard output" : path) + ": " +
           (numbered ? Quantity(written.files, "file") : ByteCount(written.bytes)));
    AddWritten(path, targets.List()[i].tracks, written);
    if (std::string const found = _outputs[i]->Findings(); !found.empty())
      warnings.push_back(path + ": " + found);
  }
  for (std::string const& warning : warnings) ReportWarning(warning);
  return _findings || !warnings.empty() ? kFindings : kOk;
}

int ExtractVerb::Copy(avi::AviFile& avi, Targets const& targets, Progress& progress) {
  std::vector<std::vector<std::pair<Output*, std::size_t>>> sinks(avi.Tracks().size());
  std::vector<bool> selected(avi.Tracks().size());
  for (Target const& target : targets.List()) {
    _outputs.push_back(OpenOutput(avi, targets, target));
    for (std::size_t n = 0; n < target.tracks.size(); ++n) {
      sinks[target.tracks[n]].emplace_back(_outputs.back().get(), n);
      selected[target.tracks[n]] = true;
    }
  }
  auto const faults =
      ReadTracks(avi, selected, progress, [&](std::size_t track, avi::Piece const& piece) {
        for (auto const& [output, number] : sinks[track]) output->Write(number, piece);
      });
  if (Interrupted()) return kInterrupted;
  progress.End();
  return Finish(targets, faults);
}

// Gets the chunk from the demuxer, as an application would.
void ExtractVerb::WriteStreamData() {
  LoadAviPlugin(_plugin);
  auto const demuxer = NewDemuxer("CusAviDemuxer");
  demuxer->Set("path", std::filesystem::absolute(_file).string());
  unsigned size = 0;
  if (!demuxer->StatusChange(stream::IStatus::kOpen) || !demuxer->Get("strdsize", size) ||
      size == 0)
    throw Error(kUnusable, _file + ": no strd chunk with content before the data");
  std::vector<std::uint8_t> data(size);
  unsigned char* buffer = data.data();
  if (!demuxer->Get("strddata", buffer))
    throw Error(kIo, _file + ": its strd chunk cannot be read");
  std::uint64_t const written = WriteFile(_streamData, data.data(), size);
  Report(_streamData + ": " + ByteCount(written));
  AddWritten(_streamData, {}, {written});
}

int ExtractVerb::Run() {
  if (_tracks.empty() && _folder.empty() && !(_from.empty() && _to.empty()))
    throw Error(kUsage, "--from, --to: need --track or --output");
  avi::AviFile avi(_file);
  if (!_streamData.empty()) {
    Targets(avi, _file).CheckPath(_streamData, _force);
    WriteStreamData();
    if (_tracks.empty() && _folder.empty()) return kOk;
  }
  if (_tracks.empty() && _folder.empty()) {
    ListTracks(avi);
    return kOk;
  }
  Targets targets(avi, _file);
  if (_folder.empty())
    targets.AddSelected(_tracks);
  else
    for (std::string const& skipped : targets.AddAll(_folder)) {
      ReportWarning(skipped);
      _findings = true;
    }
  targets.Check(_force);
  for (Target const& target : targets.List())
    if (_json && target.path == "-")
      throw Error(kUsage, "--json: standard output is taken by --track");
  CatchSignals();
  for (std::string const& note : avi.Notes()) ReportNote(_file + ": " + note);
  if (!avi.Indexed()) {
    bool const damaged = avi.HasIndex() || avi.CutOff() || avi.IndexBase() < 0;
    ReportNotice(damaged ? Level::kWarning : Level::kNote,
                 _file + ": the index is missing or incomplete; reading every chunk in movi");
    _findings = _findings || damaged;
  }
  std::int64_t const from_ms = _from.empty() ? 0 : ParseTime_ns("--from", _from) / 1000000;
  std::int64_t const to_ms = _to.empty() ? -1 : ParseTime_ns("--to", _to) / 1000000;
  if (from_ms != 0 || to_ms >= 0) _range.emplace(avi, from_ms, to_ms);
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i)
    _described.push_back(_range ? _range->Describe(i) : avi.Tracks()[i]);
  Progress progress(_progress, "extract", Progress::kBytes, _range ? 0 : BytesToRead(avi, targets));
  OrderFrames(avi, targets, progress);
  return Interrupted() ? kInterrupted : Copy(avi, targets, progress);
}

}  // namespace kestro::tool
