// kestro-avi play: lists the packets that the demuxer delivers.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "avi/AviFile.h"
#include "cli/Options.h"
#include "verbs/PlayOptions.h"
#include "verbs/PlayPlan.h"
#include "verbs/Player.h"

namespace kestro::tool {

using base::int64;

class PlayVerb {
 public:
  void AddTo(Options& options) { _options.AddTo(options); }
  int Run();

 private:
  int Follow();
  int PlayFile();
  void CheckIdentity();
  void Begin(avi::AviFile& avi);
  void CheckFrames(avi::AviFile& avi);
  void SetStart(Player& player);
  Player::Event Next(Player& player, Delivered& packet);
  Player::Event SeekTo(Player& player, int64 ms);
  int ListPackets(Player& player, avi::AviFile& avi);
  bool IsNew(Delivered& packet);
  bool IsPastEnd(Delivered const& packet) const;
  bool StartNextSeek();
  void ReportFailure(Player const& player) const;
  void WaitFor(Delivered const& packet);
  void Print(Delivered const& packet) const;
  std::string CheckPacket(avi::AviFile& avi, Delivered const& packet) const;
  void Warn(std::string const& what);

  PlayOptions _options;
  std::optional<PlayPlan> _plan;
  std::optional<int64> _seek_ms;  // seek there before the next packet
  std::size_t _seeksDone = 0;
  std::optional<Progress> _progress;
  std::uint64_t _packets = 0;
  int64 _first_ms = -1;  // of the leader
  int _code = 0;         // exit code so far

  // With --follow, the file is played again and again, from the last packets on.
  struct Last {
    int64 offset = -1, pts_ms = 0;
    unsigned seq = 0;
  };
  std::vector<Last> _last;  // by track
  std::optional<std::pair<dev_t, ino_t>> _identity;
  bool _growing = false;  // the file is being recorded
  bool _atEnd = false;    // --to was reached
  bool _failed = false;   // a read failed, which was reported

  bool _paced = false;  // the two members below are set
  int64 _origin_ms = 0;
  std::chrono::steady_clock::time_point _begin;
};

}  // namespace kestro::tool
