// Judges files that a power cut left.
#pragma once

#include "crash/Scenario.h"
#include "support/Playing.h"

namespace kestro::crash {

struct Verdict {
  bool opened = false;
  int lost = 0;   // promised packets that are not delivered, or not as recorded
  int alien = 0;  // packets delivered that were never recorded
  int late = 0;   // packets whose time is not that of the recording within 1 ms, or key mark
  // Of promised packets that share the garbage:
  int shared = 0;   // not delivered
  int unnamed = 0;  // ... and in no index that a repair could name them by
  int altered = 0;  // delivered, and not as recorded

  bool Good() const { return opened && lost == 0 && alien == 0 && late == 0; }
};

// Opens and plays files with the demuxer element.
class Judge {
 public:
  // `trusting`: does not check checksums.
  explicit Judge(Recorded const& recorded, bool trusting = false);
  ~Judge();

  // Plays a recording, where that fails repaired with the newest image in the other files. The
  // first `promised` packets must be there.
  Verdict Play(test::MemoryIO& file, Others& others, int64 promised);
  // Plays a file alone, as it is.
  Verdict Deliver(base::IO& file, int64 promised);
  // Which packets, over all tracks, are delivered by Play in either way.
  std::vector<bool> Played(test::MemoryIO& file, Others& others);
  // Plays a file that was repaired: no promise covers the times of later packets.
  Verdict Mended(base::IO& file, int64 promised);
  // Plays what the tool's repair makes of a file with garbage between two offsets: the promised
  // packets outside the garbage must be there; repair must report those of the index inside it.
  Verdict Repaired(test::MemoryIO& file, Others& others, int64 promised, int64 from, int64 to);

 private:
  std::vector<unsigned char> NewestImage(Others& others) const;
  void Compare(stream::Packet const& packet, int64 promised, Verdict& verdict);
  bool Hit(Sample const& sample) const;
  void AddSeen(std::vector<bool>& played) const;

  Recorded const& _recorded;
  bool const _trusting;
  std::string const _folder;
  int64 _from = 0, _to = 0;  // of the garbage
  bool _loose = false;       // the times of what was not promised do not matter
  test::MemoryIO _repaired;
  test::Playing _playing;
  std::vector<std::vector<char>> _seen;  // per track, which samples were delivered
  std::vector<std::size_t> _next;        // per track, which sample should come
};

}  // namespace kestro::crash
