#include "RecordVerb.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>

#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "Plugin.h"
#include "Text.h"
#include "input/FrameRate.h"

namespace kestro::tool {

using Clock = std::chrono::steady_clock;

static constexpr unsigned kMaxJunk = 64 << 20;

void RecordVerb::AddTo(CLI::App& app) {
  app.add_option("INPUT", _addresses, "Files or addresses: their video, sound and text")
      ->required()
      ->type_name("");
  app.add_option("-o,--output", _output, "The AVI file to write")->required()->type_name("OUT.avi");
  app.add_option("--fps", _rate, "Frame rate of the video, overrides the input's")
      ->type_name("N[/D]");
  app.add_flag("--no-audio", _noAudio, "Leave out the sound");
  app.add_flag("--no-video", _noVideo, "Leave out the video");
  app.add_flag("--no-text", _noText, "Leave out the text");
  app.add_option("--start", _start, "Begin with the key frame at or before this time")
      ->type_name("T");
  app.add_option("--duration", _duration, "Record this much")->type_name("T");
  app.add_flag("--realtime", _realtime, "Pace by the packets' times");
  app.add_flag("--force", _force, "Overwrite OUT");
  auto& tags = _recorder.tags;
  app.add_option("--strd", tags.strdFile, "Content of the first H.264 or HEVC track's strd chunk")
      ->type_name("FILE");
  app.add_option("--strn", tags.strn, "Name of the first H.264 or HEVC track (strn)")
      ->type_name("TEXT");
  app.add_option("--isft", tags.isft, "Name of the recording software (INFO)")->type_name("TEXT");
  app.add_option("--junk", tags.junk, "Bytes of JUNK ahead of the data")
      ->type_name("BYTES")
      ->check(CLI::Range(0u, kMaxJunk));
  auto* spill = app.add_option("--index-spill", _spillSeconds,
                               "Keep this much index in memory, the rest in a temporary file")
                    ->type_name("SECONDS")
                    ->check(CLI::Range(0, 1 << 24));
  app.add_option("--spill-dir", _recorder.spillFolder, "Where that file lies")
      ->type_name("DIR")
      ->needs(spill);
  app.add_option("--set", _settings, "Set a property of the muxer; the verb plugin lists them")
      ->type_name("NAME=VALUE")
      ->take_all()
      ->expected(1)
      ->allow_extra_args(false);
  app.add_option("--plugin", _plugin, "The plug-in, or its folder")->type_name("PATH");
  app.footer(
      "Times are seconds or [h:]m:s. Video is H.264, HEVC or motion JPEG, also a numbered series "
      "of\n"
      "JPEG files, and is recorded as it is. Sound is recorded as 16-bit PCM. The whole part of "
      "the\n"
      "frame rate is stored: 30000/1001 becomes 29.\n\n"
      "Text is SRT, WebVTT, ASS, a container's text subtitles, or a file .jsonl with a line\n"
      "{\"pts_ms\": 1500, \"text\": \"hello\"} for each. It is recorded without styles and without "
      "times:\n"
      "each text lies directly in front of the frame of the first video track that is nearest to "
      "its\n"
      "time, and readers take that frame's time for its own.\n\n"
      "Tracks have the order of the inputs; those of motion JPEG and text come last.\n\n"
      "Examples:\n"
      "  kestro-avi record -o out.avi movie.mp4\n"
      "  kestro-avi record -o out.avi --fps 25 camera.h264 microphone.wav\n"
      "  kestro-avi record -o out.avi camera.h265 left.wav right.wav titles.srt\n"
      "  kestro-avi record -o out.avi --fps 10 shot-%04d.jpg\n"
      "  kestro-avi record -o out.avi --realtime --index-spill 60 rtsp://camera/stream");
}

void RecordVerb::CheckOutput() const {
  namespace fs = std::filesystem;
  std::error_code none;
  if (!fs::exists(_output, none)) return;
  if (fs::is_directory(_output, none)) throw Error(kIo, _output + ": is a directory");
  if (!_force) throw Error(kUsage, _output + ": exists already (--force overwrites it)");
  for (std::string const& address : _addresses)
    if (fs::equivalent(address, _output, none)) throw Error(kUsage, _output + ": is an input too");
}

// Turns the command line into what the parts take.
void RecordVerb::Check() {
  CheckOutput();
  if (!_rate.empty()) _input.rate = ParseRate(_rate);
  _input.video = !_noVideo;
  _input.audio = !_noAudio;
  _input.text = !_noText;
  if (!_start.empty()) _timeline.start_ns = ParseTime_ns("--start", _start);
  if (!_duration.empty()) _timeline.duration_ns = ParseTime_ns("--duration", _duration);
  if (_timeline.duration_ns == 0) throw Error(kUsage, "--duration: nothing would be recorded");
  if (_spillSeconds >= 0) _recorder.spillSeconds = _spillSeconds;
  for (std::string const& setting : _settings) {
    std::size_t const sign = setting.find('=');
    if (sign == 0 || sign == std::string::npos)
      throw Error(kUsage, "--set: \"" + setting + "\" is not name=value");
    _recorder.properties.emplace_back(setting.substr(0, sign), setting.substr(sign + 1));
  }
}

std::string RecordVerb::Counted() const {
  return std::to_string(_packets) + " packets, " + Seconds(_end_ns / 1000000) + ", " +
         ByteCount(_bytes);
}

// Moves packets until the end, a signal or an error. False for an error of the muxer.
bool RecordVerb::Record(Session& session, Recorder& recorder) {
  Progress progress;
  auto const begin = Clock::now();
  auto shown = begin;
  std::size_t track = 0;
  TimedPacket packet;
  while (session.Next(track, packet)) {
    if (_realtime) SleepUntil(begin + std::chrono::nanoseconds(packet.time_ns));
    if (!recorder.Push(track, packet)) return false;
    ++_packets;
    _bytes += packet.data.size();
    _end_ns = std::max(_end_ns, packet.time_ns + packet.duration_ns);
    auto const now = Clock::now();
    if (!progress.Visible() || now - shown < std::chrono::milliseconds(200)) continue;
    shown = now;
    char speed[32];
    double const wall = std::chrono::duration<double>(now - begin).count();
    std::snprintf(speed, sizeof speed, ", %.1fx", static_cast<double>(_end_ns) / 1e9 / wall);
    progress.Show(Counted() + speed);
  }
  return true;
}

// Closes the file, says what happened and chooses the exit code.
int RecordVerb::Finish(Session const& session, Recorder& recorder, bool complete) {
  complete = recorder.Close() && complete;
  auto const& errors = recorder.Errors();
  std::vector<std::string> findings = recorder.Warnings();
  for (std::string const& text : session.Findings()) findings.push_back(text);
  for (std::string const& text : findings) Report("warning: " + text);
  for (std::string const& text : session.Failures()) Report("error: " + text);
  for (std::string const& text : errors)  // some name the file themselves
    Report("error: " + (text.find(_output) == std::string::npos ? _output + ": " : "") + text);
  if (!complete && errors.empty()) Report("error: " + _output + ": a packet was refused");

  if (_packets == 0) {
    if (!complete) return kIo;
    if (Interrupted()) return kInterrupted;
    throw Error(kUnusable, "nothing was recorded: no key frame, sound or text in the wanted part");
  }
  std::error_code none;
  auto const size = std::filesystem::file_size(_output, none);
  if (!none) _bytes = size;
  Report(_output + ": " + Counted());
  if (!complete) return kIo;
  if (Interrupted()) return kInterrupted;
  if (!session.Failures().empty()) return kIo;
  return findings.empty() ? kOk : kFindings;
}

int RecordVerb::Run() {
  Check();
  ReserveStandardOutput();
  LoadAviPlugin(_plugin);
  CatchSignals();
  Session session(_addresses, _input, _timeline);
  for (std::string const& text : session.Notes()) Report("note: " + text);
  for (Track const* track : session.Tracks()) {
    auto const& rate = track->Info().frameRate;
    if (track->Info().kind != TrackInfo::kVideo || rate.num % rate.den == 0) continue;
    Report("note: " + track->Info().name + ": the file says " + std::to_string(rate.Whole()) +
           " fps for " + rate.Text() + "; --fps chooses another rate");
    break;
  }
  // Absolute: the host takes "S:/name" for a name on a drive.
  Recorder recorder(_recorder, std::filesystem::absolute(_output), session.Tracks());
  bool const complete = Record(session, recorder);
  return Finish(session, recorder, complete);
}

}  // namespace kestro::tool
