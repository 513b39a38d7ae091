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
  // What an element can do.
  enum ElementFlag : unsigned {
    kOpensFile = 0x4,  // reads or writes the stream named by "path" or "io"
    kSeveralTracks = 0x8,
    kMuxer = 0x100,
    kDemuxer = 0x400,
  };

  // An element's message: `type` is "error", "warning" or "eos"; `text` and `attrs` may be null.
  // Called on the thread on which it happened, which may be in the middle of the element's work:
  // note it and return. Changes of state from here are refused where they would have to wait. A
  // muxer sends "eos" and warnings, and errors of its stream, with its mutex held: from these the
  // element is not called at all. Returns whether the message was taken.
  using MessageHandler = std::function<bool(IElement&, char const* type, char const* text,
                                            base::AttrSet const* attrs)>;

  explicit IElement(char const* name);
  ~IElement() override;

  // Any thread. A message under way may still reach the handler that was replaced.
  void OnMessage(MessageHandler handler);
  bool SendMessageUp(char const* type, char const* text, base::AttrSet* attrs);

  std::vector<std::unique_ptr<IPort>> const& Ports() const { return _ports; }
  unsigned ElementFlags() const { return _flags; }

  // Asked before an input takes a media whose codec matches; null withdraws. On the thread that
  // offers, for which a demuxer may hold its lock: it notes what it needs and returns.
  virtual bool AcceptMedia(IPort&, IMedia*) { return true; }
  // What a packet pushed into an input meets, and whether a first one may come: see ISink.
  virtual bool Deliver(Packet&, IPort&) { return false; }
  virtual bool Ready() const { return true; }

 protected:
  IPort* AddPort(bool input, char const* codecs);

  unsigned _flags = 0;
  std::vector<std::unique_ptr<IPort>> _ports;

 private:
  std::mutex _handlerMutex;
  std::shared_ptr<MessageHandler const> _handler;
};

}  // namespace kestro::stream
