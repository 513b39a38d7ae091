// Combines the tracks of several inputs.
#pragma once

#include <string>
#include <vector>

#include "media/libav/Input.h"

namespace kestro::tool {

// A part of a recording during which its inputs and their parameters stay the same.
class Epoch {
 public:
  // Begins the inputs, which must outlive the object. Throws Error for inputs that cannot be
  // recorded together.
  Epoch(std::vector<Input*> inputs, InputOptions const& options, Selection const& selection,
        EpochStart const& start);

  record::Tracks Tracks() const;  // in the order of the inputs, with unnumbered tracks last

  enum Outcome { kEnd, kPacket, kNothing };
  // Takes a step towards the next packet in time order, with its time since the start.
  Outcome Next(std::size_t& track, TimedPacket& packet);

  Timeline const& Times() const { return _timeline; }
  // The session's time of the first packet of the recording; known with the first packet.
  std::int64_t Start_ns() const { return _session_ns + _timeline.offset_ns; }

  // As those of Session, about the tracks.
  Notices const& Notes() const { return _notes; }
  Notices LateNotes() const;
  Notices Findings() const;
  Notices TakeEvents();

 private:
  void CheckTracks();
  void SetSpeeds(InputOptions const& options);
  void PlaceText(TimedPacket& packet);
  bool OthersRunAhead(std::size_t track) const;
  std::size_t FindNext() const;
  void AddFrom(std::size_t track, Notices const& own, Notices& all) const;

  std::int64_t const _session_ns;
  Timeline _timeline;
  std::vector<Input*> const _inputs;
  std::vector<Track*> _tracks;
  std::vector<std::size_t> _inputOf;  // by track
  Track* _video = nullptr;            // the first video track
  std::size_t _leadInput = 0;         // its input
  Notices _notes, _findings;          // about frame rates
  unsigned _misplaced = 0;            // texts that are stored at another frame than theirs
};

}  // namespace kestro::tool
