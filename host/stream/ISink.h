// Elements that take packets.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "stream/IElement.h"

namespace kestro::stream {

// Packets come in through the input ports, from any thread; the host passes them on one at a time,
// from the moment StatusChange has opened the sink until it closes it. Packets and changes of state
// keep each other out, and no lock is held during either. The class that defines ReceivePacket
// calls Detach in its destructor.
class KESTRO_API ISink : public IElement {
 public:
  using IElement::IElement;

  // A new input, valid until the sink is destroyed. Before the first packet.
  IPort* AddInput(char const* codecs = "*") { return AddPort(true, codecs); }

  // Takes one packet; `context` is the port. False: the packet was refused, or is known to be lost.
  // The element may move the packet's offset. It may call any element from here, but not push into
  // itself.
  virtual bool ReceivePacket(Packet& packet, void* context) = 0;

  // Waits for its turn, then calls ReceivePacket. Refused, with an error line, before every linked
  // input has its media, after the sink was closed, and from inside the sink's own calls.
  bool Deliver(Packet& packet, IPort& port) final;
  // Whether every linked input has its media.
  bool Ready() const override;

  // False while the element is in its error state.
  bool Check() const { return !_failed; }
  // False when the error is one of the stream below.
  bool CheckIO() const { return !_ioFailed; }

  // Waits for a packet under way. Refused, with an error line, from inside the sink's own calls,
  // while another thread changes the state, and from inside any handler while a packet is under
  // way.
  [[nodiscard]] bool StatusChange(int status) override;

 protected:
  void Detach();  // unlinks the inputs and waits for a packet under way

  // How often a wait for what may never come looks whether it is to be given up.
  static constexpr std::chrono::milliseconds kPoll{20};
  // Whether a packet from this port is not to wait any longer: the sink is being closed, or the
  // source stopped.
  bool GivesUp(IPort const& port) const { return _leaving || port.Interrupted(); }
  // Whether a packet under way may never end by itself.
  virtual bool Stuck() const { return false; }
  // Whether packets are taken in a state; those that wait for the end of a change to another are
  // refused at once.
  virtual bool Takes(int status) const { return status != kClosed; }
  // Whether this thread is one of the sink's own, which never waits for it.
  virtual bool OwnThread() const { return false; }

  std::atomic<bool> _failed{false}, _ioFailed{false};

 private:
  char const* Enter(IPort const& port);
  char const* Hold(int status);
  bool Mine() const;

  std::mutex _mutex;  // of what follows; never held during a call
  std::condition_variable _freed;
  bool _delivering = false, _changing = false;
  std::thread::id _deliverer, _changer;
  bool _detached = true;
  bool _ready = false;  // for whoever delivers or changes the state
  std::atomic<bool> _leaving{false};
};

}  // namespace kestro::stream
