#include "verbs/RecordOptions.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "cli/WallTime.h"
#include "media/FrameRate.h"
#include "media/SeriesName.h"
#include "media/TextEncoding.h"

namespace kestro::tool {

static constexpr unsigned kMaxJunk = 64 << 20;
static constexpr unsigned kMaxCacheBlocks = 2000;  // just below 1 GiB

static constexpr char kHelp[] =
    "Examples:\n"
    "  kestro-avi record -o out.avi movie.mp4\n"
    "  kestro-avi record -o out.avi --fps 25 camera.h264 microphone.wav titles.srt\n"
    "  kestro-avi record -o cam-%05d.avi --segment-time 10:00 --sync in-place "
    "rtsp://camera/stream\n"
    "  kestro-avi record -o out.avi --sync image --reserve-time 4:00:00 v4l2:/dev/video0\n\n"
    "Times are seconds or [h:]m:s; sizes are bytes, or end with K, M or G. Video may be H.264, "
    "HEVC\n"
    "or motion JPEG, also a numbered series of JPEG files, and is recorded unchanged. Audio is\n"
    "recorded as 16-bit PCM. A file stores whole frame rates: 30000/1001 becomes 30, and the "
    "audio\n"
    "is stretched by 0.1 % to match.\n\n"
    "A file stores no times. Where pictures are missing, the same time is taken out of all "
    "tracks,\n"
    "and missing audio becomes silence, so that the tracks stay in sync. This is reported. Where\n"
    "that is not enough, --max-skew starts a new file, in which they are in sync again.\n\n"
    "Text may be SRT, WebVTT, ASS, text subtitles in a container, or a .jsonl file with lines "
    "such\n"
    "as {\"pts_ms\": 1500, \"text\": \"hello\"}. It is recorded without styles and times: each "
    "text is\n"
    "stored directly before the frame of the first video track that is nearest to its time, and\n"
    "readers give it the time of that frame. --text-form srt stores start and end times, but puts "
    "all\n"
    "texts into the first file.\n\n"
    "Tracks are in the order of the inputs; motion JPEG and text come last. --map 0:1 takes track\n"
    "1 of the first input, 0:a its audio, 0:a:1 the second of its audio tracks, 0:eng and 0:a:eng\n"
    "those in a language. Each input needs at least one --map then.\n\n"
    "A new file starts at a key frame: the first one after the time limit, or the last one before\n"
    "the file would exceed its size limit. OUT.avi is followed by OUT-00002.avi; cam-%05d.avi "
    "creates\n"
    "cam-00001.avi and so on, after the highest number that is there; %% is a percent sign.\n"
    "Nothing is lost between the files.\n\n"
    "With --sync, the file stays playable when the recording is cut off: in-place keeps an index\n"
    "before the data up to date; image rewrites that index together with the headers after at\n"
    "least 512 KiB of data; callback keeps both in OUT.avi.sync until the file is closed. "
    "In-place\n"
    "and image also write an index after the data when a file is closed, because most players "
    "look\n"
    "only there.\n\n"
    "A network stream or device that ends, fails or delivers nothing for --stall-timeout is "
    "opened\n"
    "again, with pauses of up to 30 s, for ever or for --reconnect. The file is closed; the other\n"
    "inputs go on in files of their own, and a new file begins when it is back. A new file also\n"
    "begins when the size, profile or frame rate of a video changes.\n\n"
    "With --realtime, a queue of 10 s and 64 MiB decouples the inputs from stalls of the storage.\n"
    "A cache block is 512 KiB; bridging a stall takes bytes per second * seconds / 512 KiB + 1\n"
    "blocks.";

void RecordOptions::AddTo(Options& options) {
  options.Texts("INPUT", addresses, "", "Files or addresses to record video, audio and text from")
      .Required();
  options.Text("-o,--output", recorder.path, "OUT.avi", "The AVI file to write")
      .Required()
      .Seekable();
  AddTracks(options);
  AddFiles(options);
  AddSyncs(options);
  AddTags(options);
  AddSettings(options);
  AddRetention(options);
  AddService(options);
  json.AddTo(options, JsonOption::kLines);
  progress.AddTo(options);
  options.Footer(kHelp);
}

void RecordOptions::AddTracks(Options& options) {
  options.Text("--fps", _rate, "N[/D]", "Frame rate of the video, instead of the input's");
  options.Texts("--map", _maps, "INPUT:TRACK",
                "Record only these tracks: by number, kind or language");
  options.Flag("--no-audio", _noAudio, "Do not record audio");
  options.Flag("--no-video", _noVideo, "Do not record video");
  options.Flag("--no-text", _noText, "Do not record text");
  options.Text("--text-encoding", input.textEncoding, "NAME", "Encoding of the texts [UTF-8]");
  options
      .Text("--text-form", _textForm, "FORM",
            "Store each text alone, or all with their times as one SRT file [plain]")
      .OneOf({"plain", "srt"});
  options.Text("--start", _start, "T", "Start at the key frame at or before this time");
  options.Text("--duration", _duration, "T", "Record only this long");
  options.Flag("--keep-samples", input.keepSamples,
               "Do not stretch audio to the speed at which the pictures play");
  options
      .Text("--on-gap", _onGap, "MODE",
            "Where pictures are missing, cut all tracks, or also start a new file [cut]")
      .OneOf({"cut", "segment"});
  options.Text("--max-skew", _maxSkew, "T",
               "Start a new file when tracks are further apart, 0: never [0.2]");
  options.Text("--stall-timeout", _stallTimeout, "T",
               "A live input that delivers nothing for this time is lost, 0: never [10]");
  options.Text("--reconnect", _reconnect, "T",
               "Open lost live inputs again for this time, 0: not [for ever]");
  auto const pace = options.Flag("--realtime", realtime, "Record in real time");
  options
      .Flag("--drop", recorder.queue.drop,
            "Drop groups of pictures instead of waiting while OUT stalls")
      .Needs(pace);
}

void RecordOptions::AddFiles(Options& options) {
  options.Flag("--force", recorder.overwrite, "Overwrite OUT");
  options.Flag("--hash", recorder.hash,
               "Write OUT.sha256 when a file is closed (\"verify --check\")");
  options.Text("--segment-size", _segmentSize, "BYTES", "Start a new file before this size [2G]");
  options.Text("--segment-time", _segmentTime, "T", "Start a new file after this time");
}

void RecordOptions::AddSyncs(Options& options) {
  options.Text("--sync", _sync, "MODE", "Keep the file playable while it is recorded")
      .OneOf({"in-place", "image", "callback", "off"});
  options.Text("--sync-interval", _interval, "T", "Time between syncs [3]");
  options.Text("--reserve-time", _reserveTime, "T",
               "Reserve index space for files of this length [1:00:00]");
  options.Text("--reserve", _reserve, "BYTES", "Reserve this much index space instead");
  options.Flag("--front-index-only", _frontOnly, "Do not add an index after the data");
}

void RecordOptions::AddTags(Options& options) {
  auto& tags = recorder.tags;
  options.Text("--strd", _strdFile, "FILE",
               "Content of the first H.264 or HEVC track's strd chunk");
  options.Text("--strn", tags.strn, "TEXT", "Name of the first H.264 or HEVC track (strn)");
  options.Text("--isft", tags.isft, "TEXT", "Name of the recording software (INFO)");
  auto const start = options.Text("--start-time", _startTime, "TIME",
                                  "When the recording starts, such as 2026-11-22T14:57:00Z (INFO)");
  options.Flag("--no-start-time", _noStartTime, "Do not store when the recording starts")
      .Excludes(start);
  options.Text("--junk", _junk, "BYTES", "Bytes of JUNK before the data");
}

void RecordOptions::AddSettings(Options& options) {
  auto const spill =
      options.Number("--index-spill", _spillSeconds, 0, 1 << 24, "SECONDS",
                     "Keep this much index in memory and the rest in a temporary file");
  options.Text("--spill-dir", recorder.spillFolder, "DIR", "Folder of that temporary file")
      .Needs(spill);
  options.Number("--cache", recorder.cacheBlocks, 1u, kMaxCacheBlocks, "BLOCKS",
                 "Number of write cache blocks [3]");
  options.Texts("--set", _settings, "NAME=VALUE",
                "Set a property of the muxer (\"kestro-avi plugin\" lists them)");
  options.Text("--plugin", plugin, "PATH", "The plug-in or its folder");
}

void RecordOptions::AddRetention(Options& options) {
  auto& retention = recorder.retention;
  options.Text("--keep-free", _keepFree, "BYTES",
               "Delete the oldest files to keep this much space free");
  options.Text("--keep-bytes", _keepBytes, "BYTES",
               "Delete the oldest files beyond this size in all");
  options.Number("--keep-files", retention.keepFiles, 1, 1000000000, "N",
                 "Delete the oldest files beyond this number");
  options.Text("--keep-age", _keepAge, "T", "Delete files that ended longer ago");
  options.Flag("--event-only", recorder.events.only, "Record only around events");
  options.Text("--before", _before, "T", "How long before an event is kept [10]");
  options.Text("--after", _after, "T", "How long after an event is kept [20]");
  options.Flag("--no-protect", _noProtect, "Events do not protect files from being deleted");
}

void RecordOptions::AddService(Options& options) {
  options.Text("--control", service.control, "PATH",
               "Take requests on this Unix socket: \"help\" lists them");
  options.Text("--status", service.status, "FILE", "Write the status to this file every second");
}

static std::vector<char> ReadFile(std::string const& path) {
  constexpr std::size_t kMost = 16 << 20;  // closing a file rewrites its whole header
  std::error_code none;
  std::ifstream file(path, std::ios::binary);
  if (!file || std::filesystem::is_directory(path, none))
    throw Error(kIo, path + ": " + std::strerror(file ? EISDIR : errno));
  std::vector<char> data(kMost + 1);
  file.read(data.data(), static_cast<std::streamsize>(data.size()));
  if (file.bad()) throw Error(kIo, path + ": cannot be read");
  data.resize(static_cast<std::size_t>(file.gcount()));
  if (data.size() > kMost) throw Error(kUsage, path + ": too large for a strd chunk");
  return data;
}

void RecordOptions::Check() {
  if (std::string const pattern = SeriesPattern(addresses); !pattern.empty())
    throw Error(kUsage, "use \"" + pattern + "\" for a series of pictures");
  if (!_rate.empty()) input.rate = ParseRate(_rate);
  if (!input.textEncoding.empty() && !IsEncoding(input.textEncoding))
    throw Error(kUsage, "--text-encoding: unknown encoding \"" + input.textEncoding +
                            "\" (\"iconv -l\" lists the known ones)");
  for (std::string const& map : _maps) input.choices.push_back(TrackChoice::Parse(map));
  if (!_startTime.empty()) input.start_ns = ParseWallTime_ns("--start-time", _startTime);
  if (_noStartTime) recorder.start.clock = record::StartOptions::kNone;
  input.video = !_noVideo;
  input.audio = !_noAudio;
  input.text = !_noText;
  if (!_start.empty()) selection.start_ns = ParseTime_ns("--start", _start);
  if (!_duration.empty()) selection.duration_ns = ParseTime_ns("--duration", _duration);
  if (selection.duration_ns == 0) throw Error(kUsage, "--duration: nothing would be recorded");
  auto& segments = recorder.segments;
  recorder.keep = addresses;
  recorder.queue.enabled = realtime;
  if (!_strdFile.empty()) recorder.tags.strd = ReadFile(_strdFile);
  std::uint64_t const junk = _junk.empty() ? 0 : ParseSize("--junk", _junk);
  if (junk > kMaxJunk) throw Error(kUsage, "--junk: at most 64M");
  recorder.tags.junk = static_cast<unsigned>(junk);
  if (!_segmentSize.empty()) segments.size = ParseSize("--segment-size", _segmentSize);
  if (!_segmentTime.empty()) segments.time_ns = ParseTime_ns("--segment-time", _segmentTime);
  if (segments.size == 0 || segments.time_ns == 0)
    throw Error(kUsage, "--segment-size, --segment-time: must be more than 0");
  if (!_stallTimeout.empty()) input.stall_ns = ParseTime_ns("--stall-timeout", _stallTimeout);
  if (!_reconnect.empty()) input.reconnect_ns = ParseTime_ns("--reconnect", _reconnect);
  input.newFileAtGap = _onGap == "segment";
  if (!_maxSkew.empty()) segments.maxSkew_ns = ParseTime_ns("--max-skew", _maxSkew);
  input.textAsSrt = _textForm == "srt";
  if (input.textAsSrt && !(_segmentSize.empty() && _segmentTime.empty()))
    throw Error(kUsage,
                "--text-form srt: cannot be used with --segment-size and --segment-time, because "
                "the first file would get all texts");
  if (_spillSeconds >= 0) recorder.spillSeconds = _spillSeconds;
  CheckSync();
  CheckRetention();
  for (std::string const& setting : _settings) {
    std::size_t const sign = setting.find('=');
    if (sign == 0 || sign == std::string::npos)
      throw Error(kUsage, "--set: \"" + setting + "\" is not name=value");
    recorder.properties.emplace_back(setting.substr(0, sign), setting.substr(sign + 1));
  }
}

void RecordOptions::CheckRetention() {
  auto& retention = recorder.retention;
  auto& events = recorder.events;
  if (!_keepFree.empty()) retention.keepFree = ParseSize("--keep-free", _keepFree);
  if (!_keepBytes.empty()) retention.keepBytes = ParseSize("--keep-bytes", _keepBytes);
  if (!_keepAge.empty()) retention.keepAge_ns = ParseTime_ns("--keep-age", _keepAge);
  if (!_before.empty()) events.before_ns = ParseTime_ns("--before", _before);
  if (!_after.empty()) events.after_ns = ParseTime_ns("--after", _after);
  events.protect = !_noProtect;
}

void RecordOptions::CheckSync() {
  using record::SyncOptions;
  SyncOptions& sync = recorder.sync;
  if (_sync == "in-place") sync.mode = SyncOptions::kInPlace;
  if (_sync == "image") sync.mode = SyncOptions::kImage;
  if (_sync == "callback") sync.mode = SyncOptions::kCallback;
  bool const syncs = sync.mode != SyncOptions::kOff;
  bool const reserves = syncs && sync.mode != SyncOptions::kCallback;
  if (!syncs && !_interval.empty()) throw Error(kUsage, "--sync-interval: needs --sync");
  if (!reserves && !(_reserve.empty() && _reserveTime.empty()))
    throw Error(kUsage, "--reserve, --reserve-time: need --sync in-place or image");
  if (!reserves && _frontOnly)
    throw Error(kUsage, "--front-index-only: needs --sync in-place or image");
  sync.ordinary = !_frontOnly;
  if (syncs && recorder.spillSeconds)
    throw Error(kUsage,
                "--index-spill: cannot be used with --sync, which keeps the index in memory");

  if (!_interval.empty()) sync.interval_ns = ParseTime_ns("--sync-interval", _interval);
  if (sync.interval_ns < 1000000 || sync.interval_ns / 1000000 > UINT32_MAX)
    throw Error(kUsage, "--sync-interval: must be between 1 ms and 49 days");
  // By default for the longest possible file, which ends with a whole group of pictures.
  if (selection.duration_ns > 0) sync.reserve_ns = selection.duration_ns;
  std::int64_t const file_ns = recorder.segments.time_ns;
  if (file_ns > 0)
    sync.reserve_ns = std::min(sync.reserve_ns, file_ns + file_ns / 10 + 10000000000);
  if (!_reserveTime.empty()) sync.reserve_ns = ParseTime_ns("--reserve-time", _reserveTime);
  if (!_reserve.empty()) sync.reserveBytes = ParseSize("--reserve", _reserve);
  if (sync.reserve_ns == 0 || (!_reserve.empty() && sync.reserveBytes == 0))
    throw Error(kUsage, "--reserve, --reserve-time: must be more than 0");
}

}  // namespace kestro::tool
