#include "stream/ISink.h"

#include <algorithm>

namespace kestro::stream {

bool ISink::Ready() const {
  return std::all_of(_ports.begin(), _ports.end(),
                     [](auto const& port) { return !port->IsInput() || port->Settled(); });
}

bool ISink::Deliver(Packet& packet, IPort& port) {
  // Only a thread's own id means something to it: no order is needed.
  auto const self = std::this_thread::get_id();
  if (_delivering.load(std::memory_order_relaxed) == self) {
    KESTRO_ERROR("_delivering == self,a packet from inside ReceivePacket");
    return false;
  }
  std::lock_guard lock(_delivery);
  if (_detached || !(_ready = _ready || Ready())) {
    KESTRO_ERROR(_detached ? "_detached,the sink is closed" : "!Ready(),an input has no media yet");
    return false;
  }
  _delivering.store(self, std::memory_order_relaxed);
  bool const taken = ReceivePacket(packet, &port);
  _delivering.store(std::thread::id(), std::memory_order_relaxed);
  return taken;
}

void ISink::Detach() {
  for (auto const& port : _ports) port->Unlink();
  std::lock_guard lock(_delivery);
  _detached = true;
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
