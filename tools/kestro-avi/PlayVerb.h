// kestro-avi play: what the demuxer delivers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Player.h"
#include "Progress.h"
#include "avi/AviFile.h"

namespace CLI {
class App;
}

namespace kestro::tool {

using base::int64;

class PlayVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  using PlayMode = stream::IDemuxer::PlayMode;

  void Check();
  void CheckIndex(avi::AviFile const& avi) const;
  void ChooseTracks(avi::AviFile const& avi);
  void CheckKeys(avi::AviFile& avi);
  void Position(Player& player);
  Player::Event Next(Player& player, Delivered& packet);
  Player::Event Go(Player& player, int64 ms);
  int List(Player& player, avi::AviFile& avi);
  int64 Expected_ms() const;
  bool Beyond(Delivered const& packet) const;
  bool NextSeek();
  void Pace(Delivered const& packet);
  void Print(Delivered const& packet) const;
  std::string Fault(avi::AviFile& avi, Delivered const& packet) const;
  void Warn(std::string const& what);

  std::string _file, _mode = "normal", _from, _to, _plugin;
  std::vector<std::string> _seekTexts;
  unsigned _video = 0, _every = 1;
  bool _json = false, _realtime = false;
  std::string _preloadText;
  std::optional<int64> _preload;
  ProgressOption _progress;

  PlayMode _playMode = PlayMode::kNormal;
  int64 _from_ms = -1, _to_ms = -1;  // negative: not given
  std::optional<int64> _goTo_ms;     // before the next packet
  std::vector<int64> _seeks_ms;
  std::size_t _seeksDone = 0;
  std::vector<std::size_t> _tracks;  // numbers in the file, by the player's output
  std::size_t _leader = 0;           // the output that decides when --to is reached
  int64 _length_ms = 0;              // of the leader
  int _code = 0;                     // what is returned so far

  bool _paced = false;  // the two below are set
  int64 _origin_ms = 0;
  std::chrono::steady_clock::time_point _begin;
};

}  // namespace kestro::tool
