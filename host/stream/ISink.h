// Elements that receive packets.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "stream/IElement.h"

namespace kestro::stream {

// Packets come in through the input ports, from any thread. The host passes them on one at a time,
// after StatusChange has opened the sink and until it closes it. A packet and a change of state
// never run at the same time, and no lock is held during either. The class that defines
// ReceivePacket must call Detach in its destructor.
class KESTRO_API ISink : public IElement {
 public:
  using IElement::IElement;

  // Adds an input, valid until the sink is destroyed. Call it before the first packet.
  IPort* AddInput(char const* codecs = "*") { return AddPort(true, codecs); }

  // Takes one packet; `context` is the port. Returns false if the packet is refused or known to be
  // lost. The element may change the packet's offset. It may call any element from here, but must
  // not push into itself.
  virtual bool ReceivePacket(Packet& packet, void* context) = 0;

  // Waits for its turn, then calls ReceivePacket. Refuses the packet, with an error line, before
  // every linked input has its media, after the sink was closed, and from inside the sink's own
  // calls.
  bool Deliver(Packet& packet, IPort& port) final;
  // Whether every linked input has its media.
  bool Ready() const override;

  // False while the element is in its error state.
  bool Check() const { return !_failed; }
  // False if the error is one of the stream, not of the element itself.
  bool CheckIO() const { return !_ioFailed; }

  // Waits for a packet in progress. Refused, with an error line, from inside the sink's own calls,
  // while another thread changes the state, and from inside any handler while a packet is in
  // progress.
  [[nodiscard]] bool StatusChange(int status) override;

 protected:
  void Detach();  // unlinks the inputs and waits for a packet in progress

  // How often a wait for something that may never happen checks whether to give up.
  static constexpr std::chrono::milliseconds kPoll{20};
  // Whether a packet from this port must stop waiting: the sink is being closed, or the source
  // stopped.
  bool GivesUp(IPort const& port) const { return _leaving || port.Interrupted(); }
  // Whether a packet in progress may never finish by itself.
  virtual bool Stuck() const { return false; }
  // Whether the sink takes packets in this state. On a change to a state in which it does not,
  // packets that wait for the end of the change are refused immediately.
  virtual bool Takes(int status) const { return status != kClosed; }
  // Whether the current thread is one of the sink's own, which must never wait for the sink.
  virtual bool OwnThread() const { return false; }

  std::atomic<bool> _failed{false}, _ioFailed{false};

 private:
  char const* Enter(IPort const& port);
  char const* Hold(int status);
  bool Mine() const;

  std::mutex _mutex;  // guards the members below; never held during a call
  std::condition_variable _freed;
  bool _delivering = false, _changing = false;
  std::thread::id _deliverer, _changer;
  bool _detached = true;
  bool _ready = false;  // used only while delivering or changing the state
  std::atomic<bool> _leaving{false};
};

}  // namespace kestro::stream
