// The state of a running recording, for programs.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cli/Documents.h"
#include "cli/Notice.h"
#include "recorder/Recorder.h"

namespace kestro::tool {

Json TracksJson(record::Tracks const& tracks);

// All functions may be called from any thread. None waits for the storage.
class StatusReport {
 public:
  explicit StatusReport(std::vector<std::string> const& addresses);

  void Begin(std::shared_ptr<record::Recorder> recorder, record::Tracks const& tracks);
  void ChangeTracks(record::Tracks const& tracks);
  // An input was lost, is back, or is given up; other notices are ignored.
  void TakeNews(Notice const& news);
  void CountPacket(std::size_t bytes);
  void Finish();  // the inputs have ended; files are being closed
  void End();
  std::shared_ptr<record::Recorder> Recorder() const;  // null before Begin

  // Measures the rate. Call it at least once per second.
  void Sample();
  Json Get() const;
  std::string Line() const;  // for people

 private:
  using Clock = std::chrono::steady_clock;
  enum Stage { kOpening, kRunning, kStopping, kStopped };
  struct Count {
    Clock::time_point time;
    std::uint64_t packets, bytes;
  };
  char const* State(record::Status const& status) const;
  double PerSecond(std::uint64_t Count::*member) const;

  std::atomic<std::uint64_t> _packets{0}, _bytes{0};  // from the inputs

  mutable std::mutex _mutex;  // protects what follows
  Json _inputs = Json::array();
  std::shared_ptr<record::Recorder> _recorder;
  Json _tracks = Json::array();
  Stage _stage = kOpening;
  std::deque<Count> _counts;  // the last seconds
};

}  // namespace kestro::tool
