// Elements that take packets.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "stream/IElement.h"

namespace kestro::stream {

// Packets come in through the input ports, from any thread; the host passes them on one at a time,
// from the moment StatusChange has opened the sink until it closes it. The class that defines
// ReceivePacket calls Detach in its destructor.
class KESTRO_API ISink : public IElement {
 public:
  using IElement::IElement;

  // A new input, valid until the sink is destroyed. Before the first packet.
  IPort* AddInput(char const* codecs = "*") { return AddPort(true, codecs); }

  // The element's own road for a packet; `context` is the port. False: the packet was refused, or
  // is known to be lost. The element may move the packet's offset.
  virtual bool ReceivePacket(Packet& packet, void* context) = 0;

  // The host's road: waits its turn, then calls ReceivePacket. Refused, with an error line, before
  // every linked input has its media and after the sink was closed.
  bool Deliver(Packet& packet, IPort& port) final;
  // Whether every linked input has its media.
  bool Ready() const override;

  // False while the element is in its error state.
  bool Check() const { return !_failed; }
  // False when the error is one of the stream below.
  bool CheckIO() const { return !_ioFailed; }

  // Waits for a packet under way. Refused from inside ReceivePacket.
  bool StatusChange(int status) override;

 protected:
  void Detach();  // unlinks the inputs and waits for a packet under way

  std::atomic<bool> _failed{false}, _ioFailed{false};

 private:
  std::mutex _delivery;
  std::atomic<std::thread::id> _delivering{};
  bool _detached = true, _ready = false;
};

}  // namespace kestro::stream
