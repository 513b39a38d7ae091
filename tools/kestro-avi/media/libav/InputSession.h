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
  ReadExtent ReadSoFar() const override;
  std::vector<std::string> Notes() const override;
  std::vector<std::string> LateNotes() const override;
  std::vector<std::string> Failures() const override;
  std::vector<std::string> Findings() const override;

 private:
  void CheckTracks();
  void SetSpeeds(InputOptions const& options);
  bool FindStart();
  void PlaceText(TimedPacket& packet);
  bool OthersRunAhead(std::size_t track) const;

  bool (*const _interrupted)();
  Timeline _timeline;
  std::vector<std::unique_ptr<Input>> _inputs;
  std::vector<Track*> _tracks;
  std::vector<std::size_t> _inputOf;           // by track
  Track* _video = nullptr;                     // the first video track
  std::size_t _leadInput = 0;                  // its input
  std::vector<std::string> _notes, _findings;  // about frame rates
  unsigned _misplaced = 0;                     // texts that are stored at another frame than theirs
};

}  // namespace kestro::tool
