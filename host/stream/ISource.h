// Elements that produce packets.
#pragma once

#include <atomic>
#include <mutex>

#include "stream/IElement.h"
#include "stream/IElementWithThread.h"

namespace kestro::stream {

// Between Start and Stop, a thread of the element calls GeneratePacket repeatedly and pushes each
// packet through the output that has its media. Null is the end of the stream: the thread sends the
// message "eos" and waits until the end flag is cleared. The read-failure marker also ends the
// stream, after the message "error". No lock is held while a packet is pushed.
//
// The class that defines GeneratePacket must stop the thread in its destructor. GeneratePacket is
// called for the first time when every sink linked to the outputs has all of its media.
class KESTRO_API ISource : public IElement, public IElementWithThread {
 public:
  using IElement::IElement;
  ~ISource() override;

  // Adds an output. Call it before Open.
  IPort* AddOutput(char const* codecs = "*") { return AddPort(false, codecs); }

  // Refused, with an error line, from inside a packet or message handler of any element, and while
  // another thread changes the state.
  [[nodiscard]] bool StatusChange(int status) override;
  bool Open() override;
  bool Start() override;
  bool Pause() override;
  bool Resume() override;
  bool Stop() override;

  // Returns the next packet, whose reference the caller owns; null at the end of the stream, and
  // Packet::ReadFailure() if reading failed. The argument is not used.
  virtual Packet* GeneratePacket(void*) = 0;

  // Whether the end of the stream has been reached.
  bool Ended() const { return _ended; }

 protected:
  bool Loop() override;
  // For an element that excludes seeks from its packets with a lock. Call both with the lock held:
  // BeginTurn before a packet is generated, and ClearEnd after a seek or a change of direction,
  // which makes the stream continue even if that packet was the end.
  void BeginTurn() { _resumed = false; }
  void ClearEnd();

 private:
  class Interruption;

  std::atomic<bool> _changing{false};
  std::mutex _endMutex;  // guards the end flag and the flag that overrides it
  std::atomic<bool> _ended{false}, _resumed{false};
  bool _ready = false;
};

}  // namespace kestro::stream
