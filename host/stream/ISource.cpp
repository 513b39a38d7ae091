#include "stream/ISource.h"

#include <algorithm>

namespace kestro::stream {

ISource::~ISource() { IElementWithThread::Stop(); }

// While one exists, packets stop waiting for something that may never happen.
class ISource::Interruption {
 public:
  explicit Interruption(ISource& source) : _source(source) { Interrupt(true); }
  ~Interruption() { Interrupt(false); }

 private:
  void Interrupt(bool on) {
    for (auto const& port : _source.Ports())
      if (!port->IsInput()) port->Interrupt(on);
  }
  ISource& _source;
};

bool ISource::StatusChange(int status) {
  if (Refused()) return false;
  if (_changing.exchange(true)) {
    KESTRO_ERROR("_changing,another thread changes the state");
    return false;
  }
  bool const changed = IStatus::StatusChange(status);
  _changing = false;
  return changed;
}

bool ISource::Open() {
  {
    std::lock_guard lock(_endMutex);
    _ended = false;
  }
  return IStatus::Open();
}

bool ISource::Start() {
  if (CurrentStatus() >= kRunning) return false;
  _ready = false;
  return IElementWithThread::Start() && IStatus::Start();
}

bool ISource::Pause() {
  Interruption const interruption(*this);
  return IElementWithThread::Pause() && IStatus::Pause();
}

bool ISource::Resume() { return IElementWithThread::Resume() && IStatus::Resume(); }

bool ISource::Stop() {
  Interruption const interruption(*this);
  return IElementWithThread::Stop() && IStatus::Stop();
}

bool ISource::Loop() {
  if (_ended) return false;
  if (!_ready) {
    _ready = std::all_of(_ports.begin(), _ports.end(), [](auto& port) { return port->Ready(); });
    if (!_ready) return false;
  }
  BeginTurn();
  Packet* packet = GeneratePacket(nullptr);
  if (packet == nullptr || packet == Packet::ReadFailure()) {
    bool const failed = packet != nullptr;
    {
      std::lock_guard lock(_endMutex);
      _ended = !_resumed;
    }
    if (failed || _ended)
      SendMessageUp(failed ? "error" : "eos", failed ? "reading failed" : nullptr, nullptr);
    return !_ended;
  }
  auto const held = base::Ref<Packet>::Take(packet);
  auto const port = std::find_if(_ports.begin(), _ports.end(), [packet](auto const& candidate) {
    return !candidate->IsInput() && candidate->Carries(packet->Media());
  });
  // A sink that refuses a packet reports the reason itself.
  if (port != _ports.end()) static_cast<void>((*port)->Push(*packet));
  return true;
}

void ISource::ClearEnd() {
  {
    std::lock_guard lock(_endMutex);
    _resumed = true;
    _ended = false;
  }
  Wake();
}

}  // namespace kestro::stream
