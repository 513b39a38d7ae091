#include "verbs/PlayVerb.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/OpenForWriting.h"
#include "cli/Plugin.h"
#include "cli/Text.h"
#include "repair/GrowingFile.h"
#include "verify/FlaggedFrames.h"
#include "verify/FrameConverter.h"

namespace kestro::tool {

namespace fs = std::filesystem;

using Mode = PlayOptions::Mode;

// Warns when the demuxer does not convert frames or cannot recognise key frames.
void PlayVerb::CheckFrames(avi::AviFile& avi) {
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i)
    if (_plan->Plays(i) && FrameConverter(avi.Tracks()[i]).Needed())
      Warn("the frames of track " + std::to_string(i) +
           " are length-prefixed: the demuxer does not convert them (\"repair\" does)");
  if (_options.mode != Mode::kFast && _options.mode != Mode::kBack) return;
  for (avi::IndexEntry const& entry : FlaggedFrames(avi)) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (_plan->Plays(track))
      Warn("the index flags every frame of track " + std::to_string(track) +
           ": the demuxer treats all of them as key frames (\"repair\" corrects this)");
  }
}

void PlayVerb::SetStart(Player& player) {
  auto& demuxer = player.Demuxer();
  demuxer.PlayModeSwitch(_options.mode);
  int64 resume_ms = INT64_MAX;
  for (Last const& last : _last)
    if (last.offset >= 0) resume_ms = std::min(resume_ms, last.pts_ms);
  if (resume_ms != INT64_MAX)
    _seek_ms = resume_ms;
  else if (_options.from_ms >= 0)
    _seek_ms = _options.from_ms;
  else if (_options.mode == Mode::kBack)
    _seek_ms = std::max<int64>(demuxer.Duration(), _plan->Length_ms());
}

Player::Event PlayVerb::Next(Player& player, Delivered& packet) {
  Player::Event const event = _seek_ms ? SeekTo(player, *_seek_ms) : Player::kPacket;
  _seek_ms.reset();
  return event == Player::kFailed || event == Player::kInterrupted ? event : player.Next(packet);
}

// Makes the key frame at or before a time the next packet. Playing back would skip it, so two
// frames are read first.
Player::Event PlayVerb::SeekTo(Player& player, int64 ms) {
  auto& demuxer = player.Demuxer();
  bool const back = _options.mode == Mode::kBack;
  if (back) demuxer.PlayModeSwitch(Mode::kVideo);
  demuxer.Seek(ms);
  Player::Event event = Player::kPacket;
  Delivered skipped;
  for (int frames = back ? 2 : 0; frames > 0 && event == Player::kPacket; --frames)
    event = player.Next(skipped);
  if (back) demuxer.PlayModeSwitch(_options.mode);
  return event;
}

bool PlayVerb::IsPastEnd(Delivered const& packet) const {
  if (_options.to_ms < 0 || packet.output != _plan->Leader()) return false;
  return _options.mode == Mode::kBack ? packet.pts_ms < _options.to_ms
                                      : packet.pts_ms > _options.to_ms;
}

bool PlayVerb::StartNextSeek() {
  if (_seeksDone == _options.seeks_ms.size()) return false;
  int64 const to = _options.seeks_ms[_seeksDone++];
  _seek_ms = to;
  _paced = false;
  if (!_options.json) WriteData("seek to " + Seconds(to) + "\n");
  WriteEvent({{"event", "seek"}, {"to_ms", to}});
  return true;
}

void PlayVerb::WaitFor(Delivered const& packet) {
  if (!_options.realtime) return;
  if (!_paced) {
    _begin = std::chrono::steady_clock::now();
    _origin_ms = packet.pts_ms;
    _paced = true;
  }
  SleepUntil(_begin + std::chrono::milliseconds(std::abs(packet.pts_ms - _origin_ms)));
}

void PlayVerb::Print(Delivered const& packet) const {
  auto const track = _plan->Track(packet.output);
  if (_options.json) {
    WriteData(LineText({{"track", track},
                        {"seq", packet.seq},
                        {"pts_ms", packet.pts_ms},
                        {"duration_ms", packet.duration_ms},
                        {"size", packet.size},
                        {"key", packet.key},
                        {"eos", packet.eos}}));
    return;
  }
  char line[128];
  std::snprintf(line, sizeof line, "%5zu %7u %12.3f %9.3f %9d%s%s\n", track, packet.seq,
                static_cast<double>(packet.pts_ms) / 1000,
                static_cast<double>(packet.duration_ms) / 1000, packet.size,
                packet.key   ? "  key"
                : packet.eos ? "     "
                             : "",
                packet.eos ? "  eos" : "");
  WriteData(line);
}

// The demuxer trusts the index. Checks the chunk that a packet was read from; empty if it is right.
std::string PlayVerb::CheckPacket(avi::AviFile& avi, Delivered const& packet) const {
  avi::Chunk chunk;
  int64 const at = packet.offset - 8;
  auto const track = static_cast<int>(_plan->Track(packet.output));
  std::string const where = "packet " + std::to_string(packet.seq) + " of track " +
                            std::to_string(track) + ": the chunk at offset " + std::to_string(at);
  if (packet.size == 0) return "";  // its offset is unknown
  if (!avi.Reader().Header(at, avi.Size(), chunk) || !avi::IsDataCode(chunk.id) ||
      avi::TrackOfCode(chunk.id) != track)
    return where + " does not belong to this track";
  if (chunk.size != packet.size)
    return where + " has " + std::to_string(chunk.size) + " bytes, " + std::to_string(packet.size) +
           " were delivered";
  return "";
}

void PlayVerb::Warn(std::string const& what) {
  ReportWarning(_options.file + ": " + what);
  _code = kFindings;
}

void PlayVerb::ReportFailure(Player const& player) const {
  ReportError(_options.file + ": after " + Quantity(_packets, "packet") +
              ": reading failed at offset " + std::to_string(player.FailedAt()) +
              (player.FailedAt() > INT32_MAX ? " (the demuxer reads the first 2 GiB)" : ""));
}

// Whether a packet has not been listed yet. The last packet of a growing file is only known to be
// the last one when the file is closed.
bool PlayVerb::IsNew(Delivered& packet) {
  if (!_options.follow) return true;
  Last& last = _last[_plan->Track(packet.output)];
  if (packet.offset <= last.offset || (_growing && packet.eos)) return false;
  packet.seq = last.offset < 0 ? packet.seq : last.seq + 1;
  last = {packet.offset, packet.pts_ms, packet.seq};
  return true;
}

int PlayVerb::ListPackets(Player& player, avi::AviFile& avi) {
  Delivered packet;
  unsigned sinceSeek = 0;
  for (;;) {
    Player::Event const event = Next(player, packet);
    if (event == Player::kInterrupted) return kInterrupted;
    if (event == Player::kFailed) {
      ReportFailure(player);
      _failed = true;
      return kFindings;
    }
    if (event == Player::kEnd) {
      if (StartNextSeek()) {
        sinceSeek = 0;
        continue;
      }
      if (avi.Parts() > 1)
        Warn("has " + std::to_string(avi.Parts()) +
             " RIFF parts; the demuxer plays the first one (\"extract\" reads all)");
      break;
    }
    _atEnd = IsPastEnd(packet);
    if (_atEnd) break;
    if (!IsNew(packet)) continue;
    WaitFor(packet);
    if (Interrupted()) return kInterrupted;
    Print(packet);
    if (packet.output == _plan->Leader()) {
      if (_first_ms < 0) _first_ms = packet.pts_ms;
      _progress->Update(static_cast<std::uint64_t>(std::abs(packet.pts_ms - _first_ms)));
    }
    ++_packets;
    if (std::string const fault = CheckPacket(avi, packet); !fault.empty()) Warn(fault);
    if (++sinceSeek >= _options.every && StartNextSeek()) sinceSeek = 0;
  }
  return _code;
}

void PlayVerb::Begin(avi::AviFile& avi) {
  CheckFrames(avi);
  _last.resize(avi.Tracks().size());
  _progress.emplace(_options.progress, "play", Progress::kTime_ms,
                    _growing ? 0 : static_cast<std::uint64_t>(_plan->Expected_ms()));
  if (!_options.json) WriteData("track     seq          pts  duration      size  flags\n");
}

int PlayVerb::PlayFile() {
  auto const open = [this] {
    return _options.follow ? OpenGrowing(_options.file) : avi::OpenFile(_options.file);
  };
  avi::AviFile avi(open(), _options.file);
  PlayPlan::CheckIndex(_options, avi);
  if (!_growing)
    for (std::string const& note : avi.Notes()) ReportNote(_options.file + ": " + note);
  Player player(open(), _options.file, avi.Tracks().size(), _options.video, _options.preload);
  bool const first = !_plan;
  _plan.emplace(_options, avi, player, first);
  if (first) Begin(avi);
  // Until the recording is that long, the key frame at or before --from is not known.
  if (_growing && _options.from_ms >= _plan->Length_ms()) return _code;
  if (!player.Opened()) Warn("a part that is needed for opening could not be read");
  if (_options.from_ms > avi.Duration_ms() && !_growing)
    Warn("--from is after the end, " + Seconds(avi.Duration_ms()));
  SetStart(player);
  return ListPackets(player, avi);
}

// Where the system does not know who writes the file, one that has just changed counts as growing.
static bool IsGrowing(fs::path const& path) {
  if (auto const writing = OpenForWriting(path)) return *writing;
  std::error_code none;
  auto const changed = fs::last_write_time(path, none);
  return !none && fs::file_time_type::clock::now() - changed < std::chrono::seconds(10);
}

// Throws Error when the name now belongs to another file than in the first call.
void PlayVerb::CheckIdentity() {
  struct stat state = {};
  if (stat(_options.file.c_str(), &state) != 0) return;  // opening it reports why
  auto const now = std::make_pair(state.st_dev, state.st_ino);
  if (!_identity) _identity = now;
  if (_identity != now) throw Error(kIo, _options.file + ": was replaced by another file");
}

// Plays what is there, and again what has come since, until the file is closed.
int PlayVerb::Follow() {
  using std::chrono::milliseconds;
  constexpr milliseconds kPause(500), kLongestPause(3000);
  bool reported = false;
  for (;;) {
    auto const began = std::chrono::steady_clock::now();
    CheckIdentity();
    _growing = IsGrowing(_options.file);
    try {
      int const code = PlayFile();
      if (!_growing || _atEnd || _failed || Interrupted()) return code;
    } catch (Error const& error) {
      // Until the first sync, there is no index, and possibly nothing.
      if (!_growing || _plan || error.Code() != kUnusable) throw;
      if (!std::exchange(reported, true)) ReportNote(_options.file + ": waiting for the index");
    }
    // Opening a long file takes a moment.
    auto const now = std::chrono::steady_clock::now();
    auto const took = std::chrono::duration_cast<milliseconds>(now - began);
    SleepUntil(now + std::clamp(took * 9, kPause, kLongestPause));
    if (Interrupted()) return kInterrupted;
  }
}

int PlayVerb::Run() {
  _options.Check();
  LoadAviPlugin(_options.plugin);
  CatchSignals();
  int const code = _options.follow ? Follow() : PlayFile();
  SetAnswer({{"packets", _packets}});
  if (code == kInterrupted || _failed) return code;
  _progress->End();
  if (!_options.json) Report(_options.file + ": " + Quantity(_packets, "packet"));
  return code;
}

}  // namespace kestro::tool
