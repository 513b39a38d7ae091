// Combines the inputs of a recording.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/libav/Absences.h"
#include "media/libav/Epoch.h"
#include "media/libav/NoticeCollection.h"

namespace kestro::tool {

// Records epoch after epoch: a new one begins when a live input is lost or has come back, and when
// the parameters of an input change. All inputs are cut at the same time: where the input has ended
// or begins, or at the next key frame of the video that starts the new epoch.
//
// The session's clock relates the inputs. It is the steady clock if one of them is live, and starts
// at 0 otherwise.
class InputSession : public Session {
 public:
  // `selection`: the part to record. Throws Error for inputs that cannot be recorded, alone or
  // together.
  InputSession(std::vector<std::string> const& addresses, InputOptions const& options,
               Selection const& selection);

  record::Tracks Tracks() const override { return _epoch->Tracks(); }
  Outcome Next(std::size_t& track, TimedPacket& packet) override;
  std::optional<avi::StartTime> Captured(std::int64_t time_ns) override;
  ReadExtent ReadSoFar() const override;
  Notices Notes() const override;
  Notices LateNotes() const override;
  Notices Failures() const override;
  Notices Findings() const override;
  Notices TakeEvents() override;
  Notices TakeNews() override { return std::exchange(_news, {}); }

 private:
  void OpenAll(std::vector<std::string> const& addresses);
  bool AnyLive() const;
  bool AnyNear() const;
  void Settle();
  void WatchInputs();
  void Lose(std::size_t input);
  void RequestCut(std::int64_t session_ns);
  void CutAll(std::int64_t session_ns);
  bool IsActive(Input const& input) const;
  bool GoesOn(std::size_t input) const;
  std::int64_t RecordedAt(std::int64_t session_ns) const;
  void Place(TimedPacket& packet);
  bool IsOver() const;
  bool Continue();
  std::vector<std::size_t> AcceptReturned();
  bool Reject(std::vector<std::size_t> const& returned, std::string const& reason);
  void Begin();

  InputOptions const _options;
  Selection _selection;  // of the current epoch
  std::int64_t const _duration_ns;
  std::optional<avi::ClockAnchor> _clock;  // of live inputs
  std::vector<std::string> _names;
  std::vector<std::unique_ptr<Input>> _inputs;
  Absences _absences;
  EpochStart _start;
  std::unique_ptr<Epoch> _epoch;
  std::vector<Input*> _active;  // have tracks in it

  bool _cutting = false;     // the epoch is to end:
  Input* _guide = nullptr;   // all inputs are cut where this one is, if there is one
  std::int64_t _cut_ns = 0;  // on the session's clock

  bool _placed = false;                    // the epoch's start is known
  std::optional<std::int64_t> _zero_ns;    // the session's time of the recording's start
  std::int64_t _base_ns = 0, _end_ns = 0;  // recorded time of the epoch's start; recorded so far

  Notices _notes, _news, _events, _failures;
  NoticeCollection _findings, _lateNotes;  // of earlier epochs
};

}  // namespace kestro::tool
