// The base class of all pipeline elements.
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

  // Handles a message of an element. `type` is "error", "warning" or "eos"; `text` and `attrs` may
  // be null. The handler runs on the thread that sends the message, possibly in the middle of the
  // element's work: it should only note the message and return. Changes of state from here are
  // refused if they would have to wait. A muxer holds its mutex while it sends "eos", warnings and
  // errors of its stream: a handler of these must not call the element at all. Returns whether the
  // message was accepted.
  using MessageHandler = std::function<bool(IElement&, char const* type, char const* text,
                                            base::AttrSet const* attrs)>;

  explicit IElement(char const* name);
  ~IElement() override;

  // May be called from any thread. A message in progress may still reach the previous handler.
  void OnMessage(MessageHandler handler);
  bool SendMessageUp(char const* type, char const* text, base::AttrSet* attrs);

  std::vector<std::unique_ptr<IPort>> const& Ports() const { return _ports; }
  unsigned ElementFlags() const { return _flags; }

  // Called before an input accepts a media whose codec matches; null withdraws the media. It runs
  // on the thread that makes the offer. A demuxer may hold its lock then, so note what is needed
  // and return.
  virtual bool AcceptMedia(IPort&, IMedia*) { return true; }
  // Deliver takes a packet pushed into an input; Ready is whether a first packet may come. See
  // ISink.
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
