#include "stream/ISource.h"

#include <algorithm>

namespace kestro::stream {

ISource::~ISource() { IElementWithThread::Stop(); }

bool ISource::Open() {
  _ended = false;
  return IStatus::Open();
}

bool ISource::Start() {
  if (CurrentStatus() >= kRunning) return false;
  _ready = false;
  return IElementWithThread::Start() && IStatus::Start();
}

bool ISource::Pause() { return IElementWithThread::Pause() && IStatus::Pause(); }

bool ISource::Resume() { return IElementWithThread::Resume() && IStatus::Resume(); }

bool ISource::Stop() { return IElementWithThread::Stop() && IStatus::Stop(); }

bool ISource::Loop() {
  if (_ended) return false;
  if (!_ready) {
    _ready = std::all_of(_ports.begin(), _ports.end(), [](auto& port) { return port->Ready(); });
    if (!_ready) return false;
  }
  _goesOn = false;
  Packet* packet = GeneratePacket(nullptr);
  if (packet == nullptr || packet == Packet::ReadFailure()) {
    bool const failed = packet != nullptr;
    _ended = true;
    if (_goesOn && !failed) {
      _ended = false;
      return true;
    }
    SendMessageUp(failed ? "error" : "eos", failed ? "reading failed" : nullptr, nullptr);
    return false;
  }
  auto const held = base::Ref<Packet>::Take(packet);
  for (auto const& port : _ports)
    if (!port->IsInput() && port->Media() != nullptr && port->Media() == packet->Media()) {
      port->Push(*packet);
      break;
    }
  return true;
}

void ISource::ClearEnd() {
  _goesOn = true;
  _ended = false;
  Wake();
}

}  // namespace kestro::stream
