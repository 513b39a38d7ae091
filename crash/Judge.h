// What a file that a power cut has left is worth.
#pragma once

#include "crash/Scenario.h"
#include "support/Playing.h"

namespace kestro::crash {

struct Verdict {
  bool opened = false;
  int lost = 0;   // promised packets that are not delivered, or not as recorded
  int alien = 0;  // packets delivered that were never recorded
  int late = 0;   // packets whose time is not that of the recording within 1 ms

  bool Good() const { return opened && lost == 0 && alien == 0 && late == 0; }
};

// Opens and plays files with the demuxer element.
class Judge {
 public:
  // A judge that is `trusting` checks no checksums.
  explicit Judge(Recorded const& recorded, bool trusting = false)
      : _recorded(recorded), _trusting(trusting), _playing(&_repaired) {}

  // A recording that cannot be played as it is is repaired with the newest image in the other
  // files. The first `promised` packets must be there.
  Verdict Play(test::MemoryIO& file, std::map<int, test::MemoryIO>& others, int64 promised);

 private:
  Verdict Play(test::MemoryIO& file, int64 promised);
  std::vector<unsigned char> NewestImage(std::map<int, test::MemoryIO>& others) const;
  void Compare(stream::Packet const& packet, Verdict& verdict);

  Recorded const& _recorded;
  bool const _trusting;
  test::MemoryIO _repaired;
  test::Playing _playing;
  std::vector<std::vector<char>> _seen;  // per track, which samples were delivered
  std::vector<std::size_t> _next;        // per track, which sample should come
};

// Puts headers and index of a sync where they belong, as a repair does. What was recorded after it
// goes; an image that cannot be one leaves the file as it is.
void ApplyImage(std::vector<unsigned char>& file, std::vector<unsigned char> const& image,
                std::size_t header);

}  // namespace kestro::crash
