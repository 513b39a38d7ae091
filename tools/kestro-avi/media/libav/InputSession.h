// Combines the inputs of a recording.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/libav/Input.h"

namespace kestro::tool {

class InputSession : public Session {
 public:
  // `selection`: the part to record. Throws Error for inputs that cannot be recorded, alone or
  // together.
  InputSession(std::vector<std::string> const& addresses, InputOptions const& options,
               Selection const& selection);

  record::Tracks Tracks() const override;
  bool Next(std::size_t& track, TimedPacket& packet) override;
  std::optional<avi::StartTime> Captured(std::int64_t time_ns) override;
  ReadExtent ReadSoFar() const override;
  Notices Notes() const override;
  Notices LateNotes() const override;
  Notices Failures() const override;
  Notices Findings() const override;
  Notices TakeEvents() override;

 private:
  void CheckTracks();
  void SetSpeeds(InputOptions const& options);
  bool FindStart();
  void PlaceText(TimedPacket& packet);
  bool OthersRunAhead(std::size_t track) const;
  void AddFrom(std::size_t track, Notices const& own, Notices& all) const;

  bool (*const _interrupted)();
  Timeline _timeline;
  std::optional<std::int64_t> const _start_ns;  // as given
  std::optional<avi::ClockAnchor> _clock;       // of live inputs
  std::vector<std::unique_ptr<Input>> _inputs;
  std::vector<Track*> _tracks;
  std::vector<std::size_t> _inputOf;  // by track
  Track* _video = nullptr;            // the first video track
  std::size_t _leadInput = 0;         // its input
  Notices _notes, _findings;          // about frame rates
  unsigned _misplaced = 0;            // texts that are stored at another frame than theirs
};

}  // namespace kestro::tool
