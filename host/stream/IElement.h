// The base of everything in a pipeline.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "base/IClass.h"
#include "stream/IPort.h"
#include "stream/IStatus.h"

namespace kestro::stream {

// Ports, states, and messages to the application.
class KESTRO_API IElement : public base::Object, public IStatus {
 public:
  // What an element tells the world about itself.
  enum ElementFlag : unsigned {
    kOpensFile = 0x4,  // reads or writes the stream named by "path" or "io"
    kSeveralTracks = 0x8,
    kMuxer = 0x100,
    kDemuxer = 0x400,
  };

  // An element's message: `type` is "error", "warning" or "eos", `text` may be null. Called on the
  // thread on which the thing happened, with the element locked: note it and return; do not call
  // back into the element. The answer tells whether the message was taken.
  using MessageHandler = std::function<bool(IElement&, char const* type, char const* text)>;

  explicit IElement(char const* name);
  ~IElement() override;

  // Set before the element is opened.
  void OnMessage(MessageHandler handler) { _handler = std::move(handler); }
  bool SendMessageUp(char const* type, char const* text, base::AttrSet* attrs);

  std::vector<std::unique_ptr<IPort>> const& Ports() const { return _ports; }
  unsigned ElementFlags() const { return _flags; }

  // Asked before an input takes a media whose codec matches; null withdraws.
  virtual bool AcceptMedia(IPort&, IMedia*) { return true; }
  // What a packet pushed into an input meets, and whether a first one may come: see ISink.
  virtual bool Deliver(Packet&, IPort&) { return false; }
  virtual bool Ready() const { return true; }

 protected:
  IPort* AddPort(bool input, char const* codecs);

  unsigned _flags = 0;
  std::vector<std::unique_ptr<IPort>> _ports;

 private:
  MessageHandler _handler;
};

}  // namespace kestro::stream
