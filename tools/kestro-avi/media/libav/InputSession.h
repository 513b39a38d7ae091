// Combines the inputs of a recording.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/libav/Input.h"

namespace kestro::tool {

class InputSession : public Session {
 public:
  // `timeline`: the part to record. Throws Error for inputs that cannot be recorded, alone or
  // together.
  InputSession(std::vector<std::string> const& addresses, InputOptions const& options,
               Timeline const& timeline);

  record::Tracks Tracks() const override;
  bool Next(std::size_t& track, TimedPacket& packet) override;
  ReadExtent ReadSoFar() const override;
  std::vector<std::string> Notes() const override;
  std::vector<std::string> Failures() const override;
  std::vector<std::string> Findings() const override;

 private:
  void CheckRates();
  bool FindStart();
  bool OthersRunAhead(std::size_t track) const;

  bool (*const _interrupted)();
  Timeline _timeline;
  std::vector<std::unique_ptr<Input>> _inputs;
  std::vector<Track*> _tracks;
  std::vector<std::size_t> _inputOf;  // by track
  Track const* _video = nullptr;      // the first video track
  unsigned _misplaced = 0;            // texts that are stored at another frame than theirs
};

}  // namespace kestro::tool
