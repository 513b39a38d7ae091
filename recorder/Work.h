// The implementation of Recorder.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "recorder/Events.h"
#include "recorder/Pipeline.h"
#include "recorder/RecordingLock.h"
#include "recorder/Retention.h"
#include "recorder/Worker.h"

namespace kestro::record {

// Keeps what lasts for a whole recording, and one Pipeline after another.
class Recorder::Work {
 public:
  Work(RecorderOptions const& options, Tracks const& tracks);  // throws Refusal
  ~Work() { static_cast<void>(Stop()); }

  Code Push(std::size_t track, Payload const& payload);
  void SplitAt(std::int64_t time_ns);
  Code Event(std::string const& label);
  Code Event(std::string const& label, std::int64_t before_ns, std::int64_t after_ns);
  Result Unprotect(std::string const& file);
  Result ChangeTracks(Tracks const& tracks);
  Result Stop();
  Status GetStatus() const;
  std::string DescribeSync() const;

 private:
  std::shared_ptr<Pipeline> Current() const;
  std::shared_ptr<Pipeline> NewPipeline(TrackSet tracks);
  bool EndCurrent();
  void Report(record::Event event);
  void Finish(FinishedFile file);
  Code Failure() const { return _retention && _retention->Full() ? Code::kFull : Code::kIo; }
  void LimitSpace();
  avi::StartTime WallTime() const;
  Result Outcome() const;

  RecorderOptions _options;  // does not change once the recorder is open
  RecordingLock _lock;
  std::unique_ptr<Retention> _retention;  // null without limits
  Worker _worker;
  Events _events;
  std::unique_ptr<SegmentNames> _names;  // null when verbatim

  mutable std::mutex _mutex;           // protects what follows
  std::shared_ptr<Pipeline> _current;  // null between sets of tracks
  Status _before;                      // of the pipelines that have ended
  std::set<std::string> _reported;
  std::string _error, _last;  // the first error; the last error or warning
  std::uint64_t _warnings = 0;

  std::atomic<bool> _ended{false}, _failed{false};
  std::mutex _changeMutex;  // held while pipelines end and begin; protects what follows
  bool _stopped = false;
};

}  // namespace kestro::record
