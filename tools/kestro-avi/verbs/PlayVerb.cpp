#include "verbs/PlayVerb.h"

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/Plugin.h"
#include "cli/Text.h"
#include "verify/FlaggedFrames.h"

namespace kestro::tool {

using Mode = PlayOptions::Mode;

// Whether the demuxer can tell key frames.
void PlayVerb::CheckKeys(avi::AviFile& avi) {
  if (_options.mode != Mode::kFast && _options.mode != Mode::kBack) return;
  for (avi::IndexEntry const& entry : FlaggedFrames(avi)) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (_plan->Plays(track))
      Warn("the index flags every frame of track " + std::to_string(track) +
           ": the demuxer takes all of them for key frames (\"repair\" puts it right)");
  }
}

void PlayVerb::Position(Player& player) {
  auto& demuxer = player.Demuxer();
  demuxer.PlayModeSwitch(_options.mode);
  if (_options.from_ms >= 0)
    _goTo_ms = _options.from_ms;
  else if (_options.mode == Mode::kBack)
    _goTo_ms = std::max<int64>(demuxer.Duration(), _plan->Length_ms());
}

Player::Event PlayVerb::Next(Player& player, Delivered& packet) {
  Player::Event const event = _goTo_ms ? Go(player, *_goTo_ms) : Player::kPacket;
  _goTo_ms.reset();
  return event == Player::kFailed || event == Player::kInterrupted ? event : player.Next(packet);
}

// The key frame at or before a time comes next. Back play would step over it: two frames are passed
// first.
Player::Event PlayVerb::Go(Player& player, int64 ms) {
  auto& demuxer = player.Demuxer();
  bool const back = _options.mode == Mode::kBack;
  if (back) demuxer.PlayModeSwitch(Mode::kVideo);
  demuxer.Seek(ms);
  Player::Event event = Player::kPacket;
  Delivered passed;
  for (int frames = back ? 2 : 0; frames > 0 && event == Player::kPacket; --frames)
    event = player.Next(passed);
  if (back) demuxer.PlayModeSwitch(_options.mode);
  return event;
}

bool PlayVerb::Beyond(Delivered const& packet) const {
  if (_options.to_ms < 0 || packet.output != _plan->Leader()) return false;
  return _options.mode == Mode::kBack ? packet.pts_ms < _options.to_ms
                                      : packet.pts_ms > _options.to_ms;
}

bool PlayVerb::NextSeek() {
  if (_seeksDone == _options.seeks_ms.size()) return false;
  int64 const to = _options.seeks_ms[_seeksDone++];
  _goTo_ms = to;
  _paced = false;
  if (!_options.json) WriteData("seek to " + Seconds(to) + "\n");
  return true;
}

void PlayVerb::Pace(Delivered const& packet) {
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
    WriteData(nlohmann::ordered_json{{"track", track},
                                     {"seq", packet.seq},
                                     {"pts_ms", packet.pts_ms},
                                     {"duration_ms", packet.duration_ms},
                                     {"size", packet.size},
                                     {"key", packet.key},
                                     {"eos", packet.eos}}
                  .dump() +
              "\n");
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

// The demuxer trusts the index; this looks at the chunk that a packet came from.
std::string PlayVerb::Fault(avi::AviFile& avi, Delivered const& packet) const {
  avi::Chunk chunk;
  int64 const at = packet.offset - 8;
  auto const track = static_cast<int>(_plan->Track(packet.output));
  std::string const where = "packet " + std::to_string(packet.seq) + " of track " +
                            std::to_string(track) + ": the chunk at offset " + std::to_string(at);
  if (packet.size == 0) return "";  // not known where it was read
  if (!avi.Reader().Header(at, avi.Size(), chunk) || !avi::IsDataCode(chunk.id) ||
      avi::TrackOfCode(chunk.id) != track)
    return where + " is not one of this track";
  if (chunk.size != packet.size)
    return where + " has " + std::to_string(chunk.size) + " bytes, " + std::to_string(packet.size) +
           " were delivered";
  return "";
}

void PlayVerb::Warn(std::string const& what) {
  Report("warning: " + _options.file + ": " + what);
  _code = kFindings;
}

int PlayVerb::List(Player& player, avi::AviFile& avi) {
  Delivered packet;
  Progress progress(_options.progress, "play", Progress::kTime_ms,
                    static_cast<std::uint64_t>(_plan->Expected_ms()));
  int64 first_ms = -1;  // of the leader
  std::uint64_t packets = 0;
  unsigned sinceSeek = 0;
  if (!_options.json) WriteData("track     seq          pts  duration      size  flags\n");
  for (;;) {
    Player::Event const event = Next(player, packet);
    if (event == Player::kInterrupted) return kInterrupted;
    if (event == Player::kFailed) {
      Report("error: " + _options.file + ": after " + Quantity(packets, "packet") +
             ": reading failed at offset " + std::to_string(player.FailedAt()) +
             (player.FailedAt() > INT32_MAX ? " (the demuxer reads the first 2 GiB)" : ""));
      return kFindings;
    }
    if (event == Player::kEnd) {
      if (!NextSeek()) {
        if (avi.Parts() > 1)
          Warn("has " + std::to_string(avi.Parts()) +
               " RIFF parts; the demuxer plays the first (\"extract\" reads all)");
        break;
      }
      sinceSeek = 0;
      continue;
    }
    if (Beyond(packet)) break;
    Pace(packet);
    if (Interrupted()) return kInterrupted;
    Print(packet);
    if (packet.output == _plan->Leader()) {
      if (first_ms < 0) first_ms = packet.pts_ms;
      progress.At(static_cast<std::uint64_t>(std::abs(packet.pts_ms - first_ms)));
    }
    ++packets;
    if (std::string const fault = Fault(avi, packet); !fault.empty()) Warn(fault);
    if (++sinceSeek >= _options.every && NextSeek()) sinceSeek = 0;
  }
  progress.End();
  if (!_options.json) Report(_options.file + ": " + Quantity(packets, "packet"));
  return _code;
}

int PlayVerb::Run() {
  _options.Check();
  avi::AviFile avi(_options.file);
  PlayPlan::CheckIndex(_options, avi);
  LoadAviPlugin(_options.plugin);
  CatchSignals();
  for (std::string const& note : avi.Notes()) Report("note: " + _options.file + ": " + note);
  Player player(_options.file, avi.Tracks().size(), _options.video, _options.preload);
  _plan.emplace(_options, avi, player);
  if (!player.Opened()) Warn("a part could not be read when it was opened");
  CheckKeys(avi);
  Position(player);
  return List(player, avi);
}

}  // namespace kestro::tool
