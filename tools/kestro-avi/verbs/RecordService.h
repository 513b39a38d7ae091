// Lets people, programs and the service manager watch and control a recording.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "cli/ControlRequest.h"
#include "cli/ControlSocket.h"
#include "cli/Descriptor.h"
#include "cli/Interrupt.h"
#include "cli/ServiceManager.h"
#include "verbs/StatusFile.h"
#include "verbs/StatusReport.h"

namespace kestro::tool {

struct ServiceOptions {
  std::string control;  // path of the control socket, empty: none
  std::string status;   // path of the status file, empty: none
};

// Works on its own threads, and never holds up the recording. SIGUSR1 is an event, with its name as
// the label. Create the object before other threads, and call the functions from the thread that
// records, in this order:
//
//   RecordService service(options, addresses);
//   service.Begin(recorder, tracks);
//   while (...) { service.Proceed(); service.CountPacket(bytes); recorder->Push(...); }
//   service.Finish();
//   recorder->Stop();
class RecordService {
 public:
  RecordService(ServiceOptions const& options, std::vector<std::string> const& addresses);
  ~RecordService();  // reports the last state
  RecordService(RecordService const&) = delete;
  RecordService& operator=(RecordService const&) = delete;

  // The inputs are open.
  void Begin(std::shared_ptr<record::Recorder> recorder, record::Tracks const& tracks);
  void ChangeTracks(record::Tracks const& tracks) { _report.ChangeTracks(tracks); }
  void TakeNews(Notice const& news) { _report.TakeNews(news); }
  // Call it for every turn of the loop that records: without turns, the service hangs.
  void Proceed() { ++_turns; }
  void CountPacket(std::size_t bytes) { _report.CountPacket(bytes); }
  // The inputs have ended or are interrupted.
  void Finish();

 private:
  using Clock = std::chrono::steady_clock;

  void Run();
  void Tick();
  void TakeSignal();
  bool Progresses();
  std::string Answer(std::string_view line, char const* fault);
  Json Perform(ControlRequest const& request);

  ServiceManager const _manager;
  StatusReport _report;
  std::optional<ControlSocket> _socket;
  std::optional<StatusFile> _file;
  Descriptor const _wake;  // ends the thread
  Descriptor const _signals = EventSignals();

  std::atomic<bool> _finishing{false};
  std::atomic<std::uint64_t> _turns{0};

  // Of the thread.
  Clock::time_point _nextAlive;
  struct Seen {
    std::uint64_t turns = 0, stored = 0, dropped = 0;
  } _seen;
  std::string _lastLine;
  std::thread _thread;
};

}  // namespace kestro::tool
