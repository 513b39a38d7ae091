// Elements that produce packets.
#pragma once

#include <atomic>

#include "stream/IElement.h"
#include "stream/IElementWithThread.h"

namespace kestro::stream {

// Between Start and Stop a thread of the element asks GeneratePacket for one packet after another
// and pushes each through the output that has its media. Null is the end of the stream: the message
// "eos" is sent and the thread waits until the end flag is cleared. The read-failure marker ends
// the stream too, after the message "error".
//
// The class that defines GeneratePacket stops the thread in its destructor. The first packet is
// asked for when every sink behind the outputs has all of its media.
class KESTRO_API ISource : public IElement, public IElementWithThread {
 public:
  using IElement::IElement;
  ~ISource() override;

  // A new output, before Open.
  IPort* AddOutput(char const* codecs = "*") { return AddPort(false, codecs); }

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
  void ClearEnd();  // the stream goes on, after a seek or a change of direction

 private:
  std::atomic<bool> _ended{false};
  std::atomic<bool> _goesOn{false};  // the end was cleared while a packet was asked for
  bool _ready = false;
};

}  // namespace kestro::stream
