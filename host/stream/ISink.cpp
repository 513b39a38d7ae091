#include "stream/ISink.h"

#include <algorithm>

namespace kestro::stream {

bool ISink::Ready() const {
  return std::all_of(_ports.begin(), _ports.end(),
                     [](auto const& port) { return !port->IsInput() || port->Settled(); });
}

bool ISink::Deliver(Packet& packet, IPort& port) {
  auto const self = std::this_thread::get_id();
  if (_delivering == self) {
    KESTRO_ERROR("_delivering == self,a packet from inside ReceivePacket");
    return false;
  }
  std::lock_guard lock(_delivery);
  if (_detached || !(_ready = _ready || Ready())) {
    KESTRO_ERROR(_detached ? "_detached,the sink is closed" : "!Ready(),an input has no media yet");
    return false;
  }
  _delivering = self;
  bool const taken = ReceivePacket(packet, &port);
  _delivering = std::thread::id();
  return taken;
}

bool ISink::StatusChange(int status) {
  if (_delivering == std::this_thread::get_id()) {
    KESTRO_ERROR("_delivering == self,a change of state from inside ReceivePacket");
    return false;
  }
  if (status < kClosed || status > kPaused) return false;
  std::lock_guard lock(_delivery);
  _detached = status == kClosed;
  _ready = false;
  return IStatus::StatusChange(status);
}

}  // namespace kestro::stream
