// Decides which tracks of a file are played.
#pragma once

#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "verbs/PlayOptions.h"
#include "verbs/Player.h"

namespace kestro::tool {

class PlayPlan {
 public:
  // Throws Error for an index that the demuxer cannot use.
  static void CheckIndex(PlayOptions const& options, avi::AviFile const& avi);

  // Gets the tracks from the player's demuxer, and with `report` names those that are not played.
  // Throws Error when the options cannot be met.
  PlayPlan(PlayOptions const& options, avi::AviFile const& avi, Player& player, bool report);

  std::size_t Track(std::size_t output) const { return _tracks[output]; }  // number in the file
  bool Plays(std::size_t track) const;
  std::size_t Leader() const { return _leader; }         // the output that --from and --to refer to
  std::int64_t Length_ms() const { return _length_ms; }  // of the leader
  // How much of the leader is played; 0 when seeks make that unknown.
  std::int64_t Expected_ms() const;

 private:
  std::string Name(std::size_t track) const;
  void FindSkipped(std::vector<std::size_t> const& videos, bool report);
  void ChooseLeader();

  PlayOptions const& _options;
  avi::AviFile const& _avi;
  std::vector<std::size_t> _tracks;
  std::size_t _leader = 0;
  std::int64_t _length_ms = 0;
  bool _hasLeader = false;
  std::vector<std::string> _notes;  // about tracks that are not played
};

}  // namespace kestro::tool
