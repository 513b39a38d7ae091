#include "verbs/RecordService.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "cli/Answer.h"
#include "cli/ControlClients.h"
#include "cli/Errors.h"
#include "cli/Escaped.h"

namespace kestro::tool {

RecordService::RecordService(ServiceOptions const& options,
                             std::vector<std::string> const& addresses)
    : _report(addresses), _wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (_wake.Number() < 0) throw Error(kIo, std::string("eventfd: ") + std::strerror(errno));
  if (!options.control.empty()) _socket.emplace(options.control);
  if (!options.status.empty()) _file.emplace(options.status, _report);
  _thread = std::thread([this] { Run(); });
}

RecordService::~RecordService() {
  Finish();
  eventfd_write(_wake.Number(), 1);
  _thread.join();
  _report.End();
}

void RecordService::Begin(std::shared_ptr<record::Recorder> recorder,
                          record::Tracks const& tracks) {
  _report.Begin(std::move(recorder), tracks);
  _manager.Send("READY=1");
}

void RecordService::Finish() {
  if (_finishing.exchange(true)) return;
  _report.Finish();
  _manager.Send("STOPPING=1");
}

void RecordService::Run() {
  ControlClients clients(
      _socket ? _socket->Number() : -1,
      [this](std::string_view line, char const* fault) { return Answer(line, fault); });
  auto const alive = std::chrono::duration_cast<std::chrono::milliseconds>(_manager.Watchdog());
  auto const period = alive.count() == 0 ? std::chrono::milliseconds(1000)
                                         : std::clamp(alive / 4, std::chrono::milliseconds(10),
                                                      std::chrono::milliseconds(1000));
  auto next = Clock::now();
  for (;;) {
    auto events = clients.Events();
    events.push_back({_signals.Number(), POLLIN, 0});
    events.push_back({_wake.Number(), POLLIN, 0});
    auto const wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    poll(events.data(), events.size(), static_cast<int>(std::max<long long>(0, wait.count())));
    if (events.back().revents != 0) return;
    clients.Serve(events.data());
    if (events[events.size() - 2].revents != 0) TakeSignal();
    if (Clock::now() < next) continue;
    Tick();
    next = Clock::now() + period;
  }
}

void RecordService::Tick() {
  _report.Sample();
  if (StopRequested() && !_finishing) RequestStop();
  if (!_manager) return;
  if (std::string line = Escaped(_report.Line(), false); line != _lastLine) {
    _manager.Send("STATUS=" + line);
    _lastLine = std::move(line);
  }
  if (_manager.Watchdog().count() == 0 || Clock::now() < _nextAlive || !Progresses()) return;
  _manager.Send("WATCHDOG=1");
  _nextAlive = Clock::now() + _manager.Watchdog() / 2;
}

// Whether the thread that records goes on, and the storage accepts packets.
bool RecordService::Progresses() {
  auto const recorder = _report.Recorder();
  if (_finishing || recorder == nullptr) return true;
  record::Status const status = recorder->GetStatus();
  Seen const last = std::exchange(_seen, {_turns, status.packets, status.dropped});
  return _seen.turns != last.turns &&
         (_seen.dropped == last.dropped || _seen.stored != last.stored);
}

void RecordService::TakeSignal() {
  signalfd_siginfo signal;
  if (read(_signals.Number(), &signal, sizeof signal) != sizeof signal) return;
  ControlRequest request;
  request.kind = ControlRequest::kEvent;
  request.text = "SIGUSR1";
  try {
    Perform(request);
  } catch (Error const& error) {
    ReportWarning(std::string("SIGUSR1: ") + error.what());
  }
}

static void Check(record::Code code) {
  switch (code) {
    case record::Code::kOk:
      return;
    case record::Code::kInvalid:
      throw Error(kUsage, "the times must be at most a day");
    case record::Code::kEnded:
      throw Error(kIo, "the recording has ended");
    case record::Code::kMemory:
      throw Error(kIo, "out of memory");
    default:
      throw Error(kIo, "the recording has failed");
  }
}

std::string RecordService::Answer(std::string_view line, char const* fault) {
  Json answer{{"ok", true}};
  try {
    if (fault != nullptr) throw Error(kUsage, fault);
    answer.update(Perform(ControlRequest::Parse(line)));
  } catch (Error const& error) {
    answer = {{"ok", false}, {"error", error.what()}};
  }
  return LineText(answer);
}

Json RecordService::Perform(ControlRequest const& request) {
  auto const recorder = _report.Recorder();
  auto const require = [&recorder]() -> record::Recorder& {
    if (recorder == nullptr) throw Error(kIo, "the inputs are not open yet");
    return *recorder;
  };
  switch (request.kind) {
    case ControlRequest::kEvent:
      Check(request.times
                ? require().Event(request.text, request.times->before_ns, request.times->after_ns)
                : require().Event(request.text));
      break;
    case ControlRequest::kUnprotect:
      if (record::Result const result = require().Unprotect(request.text); !result)
        throw Error(kIo, result.text);
      break;
    case ControlRequest::kSplit:
      require().Split();
      break;
    case ControlRequest::kStatus:
      return _report.Get();
    case ControlRequest::kStop:
      RequestStop();
      break;
    case ControlRequest::kHelp:
      return {{"requests", ControlRequest::Help()}};
  }
  return Json::object();
}

}  // namespace kestro::tool
