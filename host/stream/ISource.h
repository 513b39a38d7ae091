// Elements that produce packets.
#pragma once

#include <atomic>
#include <mutex>

#include "stream/IElement.h"
#include "stream/IElementWithThread.h"

namespace kestro::stream {

// Between Start and Stop a thread of the element asks GeneratePacket for one packet after another
// and pushes each through the output that has its media. Null is the end of the stream: the message
// "eos" is sent and the thread waits until the end flag is cleared. The read-failure marker ends
// the stream too, after the message "error". No lock is held while a packet is pushed.
//
// The class that defines GeneratePacket stops the thread in its destructor. The first packet is
// asked for when every sink linked to the outputs has all of its media.
class KESTRO_API ISource : public IElement, public IElementWithThread {
 public:
  using IElement::IElement;
  ~ISource() override;

  // A new output, before Open.
  IPort* AddOutput(char const* codecs = "*") { return AddPort(false, codecs); }

  // Refused, with an error line, from inside a packet or message handler of any element, and while
  // another thread changes the state.
  [[nodiscard]] bool StatusChange(int status) override;
  bool Open() override;
  bool Start() override;
  bool Pause() override;
  bool Resume() override;
  bool Stop() override;

  // The next packet, whose reference is the caller's; null at the end, Packet::ReadFailure() when
  // reading failed. The argument is not used.
  virtual Packet* GeneratePacket(void*) = 0;

  // Whether the end of the stream has been reached.
  bool Ended() const { return _ended; }

 protected:
  bool Loop() override;
  // For an element whose packets and seeks exclude each other by a lock, both under it: a packet is
  // asked for; the stream goes on, after a seek or a change of direction, whatever that packet was.
  void BeginTurn() { _goesOn = false; }
  void ClearEnd();

 private:
  class Interruption;

  std::atomic<bool> _changing{false};
  std::mutex _endMutex;  // of the end flag and the one that overrules it
  std::atomic<bool> _ended{false}, _goesOn{false};
  bool _ready = false;
};

}  // namespace kestro::stream
