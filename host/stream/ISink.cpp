#include "stream/ISink.h"

#include <algorithm>

#include "stream/Callout.h"

namespace kestro::stream {

bool ISink::Ready() const {
  return std::all_of(_ports.begin(), _ports.end(),
                     [](auto const& port) { return !port->IsInput() || port->Settled(); });
}

bool ISink::Mine() const {
  auto const self = std::this_thread::get_id();
  return self == _deliverer || self == _changer || OwnThread();
}

// Returns null if a packet may be delivered now, otherwise why it is refused.
char const* ISink::Enter(IPort const& port) {
  std::unique_lock lock(_mutex);
  if (Mine()) return "Mine(),a packet from inside the sink's own calls";
  while ((_delivering || _changing) && !_detached) {
    if (GivesUp(port) && Stuck()) return "Stuck(),the sink is not ready and the source is stopped";
    _freed.wait_for(lock, kPoll);
  }
  if (_detached) return "_detached,the sink takes no packets";
  _delivering = true;
  _deliverer = std::this_thread::get_id();
  return nullptr;
}

bool ISink::Deliver(Packet& packet, IPort& port) {
  if (char const* const why = Enter(port)) {
    KESTRO_ERROR(why);
    return false;
  }
  bool taken = false;
  {
    Callout const callout;
    _ready = _ready || Ready();
    if (_ready)
      taken = ReceivePacket(packet, &port);
    else
      KESTRO_ERROR("!Ready(),an input has no media yet");
  }
  {
    std::lock_guard lock(_mutex);
    _delivering = false;
    _deliverer = std::thread::id();
  }
  _freed.notify_all();
  return taken;
}

// Returns null if the state may be changed now, with no packet in progress, otherwise why not.
char const* ISink::Hold(int status) {
  std::unique_lock lock(_mutex);
  if (Mine()) return "Mine(),a change of state from inside the sink's own calls";
  if (_changing) return "_changing,another thread changes the state";
  if (_delivering && Callout::Active())
    return "_delivering,a change of state from inside a handler";
  _changing = true;
  _changer = std::this_thread::get_id();
  _detached = _leaving = !Takes(status);
  _freed.wait(lock, [this] { return !_delivering; });
  return nullptr;
}

bool ISink::StatusChange(int status) {
  if (status < kClosed || status > kPaused) return false;
  if (char const* const why = Hold(status)) {
    KESTRO_ERROR(why);
    return false;
  }
  _ready = false;
  bool const changed = IElement::StatusChange(status);
  {
    std::lock_guard lock(_mutex);
    _changing = _leaving = false;
    _changer = std::thread::id();
  }
  _freed.notify_all();
  return changed;
}

void ISink::Detach() {
  {
    std::lock_guard lock(_mutex);
    _detached = _leaving = true;
  }
  _freed.notify_all();
  for (auto const& port : _ports)
    if (port->IsInput()) port->Cut(true);
  std::unique_lock lock(_mutex);
  _freed.wait(lock, [this] { return !_delivering; });
}

}  // namespace kestro::stream
