#include "verbs/JoinVerb.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/Plugin.h"
#include "cli/Recorder.h"
#include "cli/Text.h"
#include "media/FrameRate.h"
#include "media/Scaled.h"
#include "repair/Rates.h"
#include "verbs/ExtractRange.h"
#include "verbs/FileMarks.h"
#include "verbs/FileTexts.h"
#include "verbs/TrackFormats.h"
#include "verify/KeyFrame.h"
#include "verify/ReadAnnexB.h"

namespace kestro::tool {

void JoinVerb::AddTo(Options& options) {
  bool const clip = _kind == kClip;
  options.Texts("FILE", _files, "", "The AVI files, in order").Required();
  auto const output =
      options.Text("-o,--output", _output, "OUT.avi", "The AVI file to write").Seekable();
  if (!clip) output.Required();
  if (clip) {
    auto const from =
        options.Text("--from", _from, "T", "Begin with the key frame at or before this time");
    auto const to = options.Text("--to", _to, "T", "End at this time");
    options.Flag("--list", _list, "List the files, texts and events with their times and dates")
        .Excludes(output)
        .Excludes(from)
        .Excludes(to);
  }
  options.Flag("--force", _force, "Overwrite OUT");
  _json.AddTo(options);
  _progress.AddTo(options);
  options.Text("--plugin", _plugin, "PATH", "The plug-in or its folder");
  options.Footer(
      std::string("Examples:\n") +
      (clip ? "  kestro-avi clip --from 1:30 --to 2:00 -o part.avi recording.avi\n"
              "  kestro-avi clip --list cam-*.avi\n"
              "  kestro-avi clip --from 59:50 --to 1:00:10 -o event.avi cam-*.avi\n"
              "  kestro-avi clip --from 2026-11-22T14:57:00Z --to 2026-11-22T14:57:10Z "
              "-o event.avi cam-*.avi\n\n"
              "Times count from the beginning of the first file. A date, which the files must "
              "store,\n"
              "is in UTC (Z), has an offset (+01:00), or is local time.\n\n"
            : "  kestro-avi join -o day.avi cam-*.avi\n\n") +
      "Nothing is encoded. Several files count as one recording: each begins where the one\n"
      "before ends. They must have the same tracks, with the same formats and rates. A new\n"
      "file starts before 2 GiB.");
}

// The tracks as far as joined files must have them in common.
static std::string Describe(avi::AviFile& avi, Head const& head) {
  std::string text;
  auto const formats = ReadFormats(avi, false);
  for (std::size_t i = 0; i < head.recorded.size(); ++i) {
    record::TrackInfo const& info = head.recorded[i];
    static constexpr char const* kNames[] = {"H.264", "HEVC", "motion JPEG", "PCM", "text"};
    text += text.empty() ? "" : "; ";
    text += kNames[info.codec];
    if (info.IsVideo())
      text += " " + std::to_string(info.width) + "x" + std::to_string(info.height) + ", " +
              record::TrackInfo::StoredRate(info.frameRate).Text() + " fps";
    auto const track = std::find(head.numbers.begin(), head.numbers.end(), static_cast<int>(i));
    auto const& format = formats[static_cast<std::size_t>(track - head.numbers.begin())].format;
    if (format && info.TakesParameterSets())
      text +=
          ", " + format->profile + ", " + std::to_string(format->bits) + " bits, " + format->chroma;
    if (info.IsAudio())
      text += " " + std::to_string(info.rate) + " Hz, " +
              Quantity(static_cast<std::uint64_t>(info.channels), "channel") + ", " +
              std::to_string(info.bits) + " bits";
  }
  return text;
}

// The track whose length is that of the file: the first video track, or else the first one.
static std::size_t LeadOf(avi::AviFile const& avi) {
  auto const& tracks = avi.Tracks();
  auto const video = std::find_if(tracks.begin(), tracks.end(), [](avi::AviTrack const& track) {
    return track.type == "video" && track.chunks != 0;
  });
  return video == tracks.end() ? 0 : static_cast<std::size_t>(video - tracks.begin());
}

static std::int64_t Time_ns(avi::AviTrack const& track, std::uint64_t position) {
  bool const audio = track.type == "audio";
  return Scaled(static_cast<std::int64_t>(position),
                std::int64_t{1000000000} * (audio ? 1 : track.scale),
                audio ? track.sampleRate : track.rate);
}

void JoinVerb::ReadParts() {
  std::int64_t end_ns = 0;
  for (std::string const& path : _files) {
    avi::AviFile avi(path);
    Head head = ReadHead(avi, path);
    for (std::string const& warning : SetRates(head, {}).warnings) _warnings.push_back(warning);
    std::string const tracks = Describe(avi, head);
    if (_parts.empty()) {
      _head = head;
      _tracks = tracks;
    }
    if (tracks != _tracks)
      throw Error(kUnusable, path + ": has other tracks than " + _files[0] + ": " + tracks +
                                 ", not " + _tracks);
    for (std::size_t i = 0; i < head.numbers.size(); ++i)
      if (head.numbers[i] < 0)
        _warnings.push_back(path + ": track " + std::to_string(i) +
                            " is left out: " + head.tracks[i].Kind() + " cannot be recorded");
    if (!avi.Indexed())
      _warnings.push_back(path + ": the index is missing or incomplete; reading every chunk");
    avi::AviTrack const& lead = avi.Tracks()[LeadOf(avi)];
    std::int64_t const start_ms = end_ns / 1000000;
    end_ns += std::max<std::int64_t>(
        0, lead.type == "video" ? Time_ns(lead, lead.chunks) : lead.duration_ms * 1000000);
    avi::Software const software = avi.ReadSoftware();
    _parts.push_back({path, start_ms, end_ns / 1000000 - start_ms, head.numbers, software.start});
    _times.Add({path, start_ms, _parts.back().length_ms, software.start,
                _list ? ReadTexts(avi) : std::vector<TimedText>(),
                _list ? ReadMarks(path) : std::vector<avi::KeepMarker::Event>()});
    if (_parts.size() == 1) _software = software.name;
  }
}

// When a packet of the joined recording was captured.
std::optional<record::CaptureTime> JoinVerb::Captured(std::int64_t time_ns) const {
  for (auto part = _starts.rbegin(); part != _starts.rend(); ++part)
    if (auto const& [base_ns, start] = *part; base_ns <= time_ns) {
      if (!start) return std::nullopt;
      return record::CaptureTime{start->time_ns + time_ns - base_ns, start->set};
    }
  return std::nullopt;
}

void JoinVerb::BeginAudio(Part const& part, avi::AviFile const& avi, ExtractRange const* range) {
  auto const describe = [&](std::size_t track) {
    return range != nullptr ? range->Describe(track) : avi.Tracks()[track];
  };
  std::int64_t const part_end_ms = part.start_ms + part.length_ms;
  bool const last = &part == &_parts.back() || (_to_ms >= 0 && _to_ms <= part_end_ms);
  std::size_t const lead = LeadOf(avi);
  auto const length_of = [](avi::AviTrack const& track) {
    return track.type == "audio" ? track.bytes / track.FrameBytes() : track.chunks;
  };
  std::int64_t const end_ns =
      last ? -1 : _base_ns + Time_ns(avi.Tracks()[lead], length_of(describe(lead)));
  for (std::size_t track = 0; track < part.numbers.size(); ++track) {
    avi::AviTrack const& audio = describe(track);
    if (audio.type == "audio" && track != lead && part.numbers[track] >= 0)
      _audio[static_cast<std::size_t>(part.numbers[track])].Begin(audio, length_of(audio), end_ns);
  }
}

bool JoinVerb::Push(record::Recorder& recorder, avi::AviFile const& avi, std::size_t track,
                    int number, avi::Piece const& piece) {
  avi::AviTrack const& info = avi.Tracks()[track];
  auto const index = static_cast<std::size_t>(number);
  if (info.type == "audio" && track != LeadOf(avi)) return _audio[index].Add(piece);
  bool const nal = info.codec == "h264" || info.codec == "hevc";
  auto const kind = nal ? PictureKind(info.codec, piece.data, piece.size) : Picture::kKey;
  record::Payload payload;
  payload.data = piece.data;
  payload.size = piece.size;
  payload.time_ns = _base_ns + Time_ns(avi.Tracks()[avi.ClockOf(track)], piece.position);
  payload.key = IsKeyFrame(kind, piece.key);
  return recorder.Push(index, payload) == record::Code::kOk;
}

bool JoinVerb::ReachAudio(std::int64_t time_ns) {
  return std::all_of(_audio.begin(), _audio.end(),
                     [time_ns](JoinedAudio& audio) { return audio.Reach(time_ns); });
}

void JoinVerb::EndAudio(Part const& part) {
  for (std::size_t i = 0; i < _audio.size(); ++i) {
    if (!_head.recorded[i].IsAudio() || !_audio[i].End()) continue;
    std::string const changes = _audio[i].Changes();
    if (!changes.empty())
      _warnings.push_back(part.path + ": track " + std::to_string(i) + ": " + changes);
  }
}

// Gets the first two frames of a clip that begins within a recording. Frames of an open group are
// copied: without them, audio would no longer be in sync.
void JoinVerb::CheckStart(avi::AviTrack const& info, avi::Piece const& piece) {
  bool const key = piece.position == 0;
  if (key) _start.emplace(stream::NalCodecOf(info.codec));
  if (_start && _start->Leads(piece.data, piece.size, key, key ? 0 : -1))
    _warnings.push_back(
        "the clip begins with an open group of pictures: those that refer to earlier pictures "
        "cannot be "
        "decoded");
}

void JoinVerb::CopyPart(Part const& part, record::Recorder& recorder, Progress& progress) {
  avi::AviFile avi(part.path);
  std::int64_t const from_ms = std::max<std::int64_t>(0, _from_ms - part.start_ms);
  std::int64_t const end_ms = part.start_ms + part.length_ms;
  std::int64_t const to_ms = _to_ms < 0 || _to_ms >= end_ms ? -1 : _to_ms - part.start_ms;
  if (part.length_ms <= from_ms || (_to_ms >= 0 && _to_ms <= part.start_ms)) return;
  std::optional<ExtractRange> range;
  if (from_ms > 0 || to_ms > 0) range.emplace(avi, from_ms, to_ms);
  BeginAudio(part, avi, range ? &*range : nullptr);
  auto start = part.start;
  if (start && range) start->time_ns += range->Begin_ns();
  _starts.emplace_back(_base_ns, start);

  std::size_t const lead = LeadOf(avi);
  std::uint64_t reached = 0;  // positions of the leading track
  std::uint64_t empty = 0;
  bool pushed = true;
  auto const faults = ReadAnnexB(
      avi, std::vector<bool>(avi.Tracks().size(), true),
      [&](std::size_t track, avi::Piece const& piece, std::size_t stored) {
        avi::AviTrack const& info = avi.Tracks()[track];
        std::size_t const samples = piece.size / info.FrameBytes();
        int const number = part.numbers[track];  // below 0: cannot be recorded
        empty += stored == 0 && number >= 0 && info.type == "video" && ChunksPerFrame(info) == 1;
        pushed = piece.size == 0 || number < 0 || Push(recorder, avi, track, number, piece);
        if (track == lead) {
          if (_base_ns == 0 && from_ms > 0 && piece.position < 2) CheckStart(info, piece);
          reached = piece.position + (info.type == "audio" ? samples : 1);
          pushed = pushed && ReachAudio(_base_ns + Time_ns(info, reached));
        }
        progress.Update(_done += stored);
        return pushed && !Interrupted();
      },
      range ? &*range : nullptr);
  for (std::string const& fault : faults) _warnings.push_back(part.path + ": " + fault);
  if (empty != 0)
    _warnings.push_back(part.path + ": " + Quantity(empty, "empty frame") +
                        " left out: later pictures come earlier");
  if (pushed && !Interrupted()) EndAudio(part);
  _base_ns += Time_ns(avi.Tracks()[lead], reached);
}

void JoinVerb::ReadRange() {
  std::optional<Moment> from, to;
  if (!_from.empty()) from = Moment::Parse("--from", _from);
  if (!_to.empty()) to = Moment::Parse("--to", _to);
  ReadParts();
  std::int64_t const length_ms = _parts.back().start_ms + _parts.back().length_ms;
  if (length_ms == 0) throw Error(kUnusable, _files[0] + ": its video has no frames or no rate");
  if (from) _from_ms = _times.Begin_ms(*from);
  if (to) _to_ms = _times.End_ms(*to);
  if (_from_ms >= length_ms) throw Error(kUsage, "--from is after the end, " + Seconds(length_ms));
  if (_to_ms >= 0 && _to_ms <= _from_ms)
    throw Error(kUsage,
                from && from->date && to->date && from->time_ns < to->time_ns
                    ? "--from, --to: the files have nothing between these dates, in this order"
                    : "--to must be after --from");
}

int JoinVerb::Run() {
  if (_output.empty() && !_list) throw Error(kUsage, "--output is required");
  if (_list) {
    ReadParts();
    SetAnswer({{"files", _times.List()}, {"texts", _times.Texts()}, {"events", _times.Events()}});
    if (!_json) WriteData(_times.Table());
    return kOk;
  }
  ReadRange();
  LoadAviPlugin(_plugin);
  CatchSignals();
  record::RecorderOptions options;
  options.path = _output;
  options.overwrite = _force;
  options.keep = _files;
  options.queue.enabled = false;
  options.tags = _head.tags;
  if (_times.HasStarts()) options.tags.isft = _software;
  options.start.captured = [this](std::int64_t time_ns) { return Captured(time_ns); };
  options.segments.maxSkew_ns = 0;  // the files are as they are
  options.onEvent = [this](record::Event const& event) {
    if (event.kind == record::Event::kClosed) {
      Report(event.text);
      _outputs.push_back(ClosedJson(event));
    }
    if (event.kind == record::Event::kWarning) _warnings.push_back(event.text);
    if (event.kind == record::Event::kError) _errors.push_back(event.text);
  };
  auto const recorder = OpenRecorder(options, _head.recorded);
  for (std::size_t i = 0; i < _head.recorded.size(); ++i) _audio.emplace_back(*recorder, i);
  Progress progress(_progress, _kind == kClip ? "clip" : "join", Progress::kBytes, 0);
  for (Part const& part : _parts)
    if (!Interrupted()) CopyPart(part, *recorder, progress);
  record::Result const result = recorder->Stop();
  if (result && !Interrupted()) progress.End();
  SetAnswer({{"inputs", _files}, {"outputs", _outputs}});
  for (std::string const& text : _warnings) ReportWarning(text);
  if (!result) throw Error(kIo, _errors.empty() ? result.text : _errors.front());
  if (Interrupted()) return kInterrupted;
  return _warnings.empty() ? kOk : kFindings;
}

}  // namespace kestro::tool
