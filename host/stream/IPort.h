// The connection points of elements.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/Object.h"
#include "stream/IMedia.h"
#include "stream/Packet.h"

namespace kestro::stream {

class Connection;
class IElement;

// An input or output of an element, which owns it. It carries one track: first the media, then
// packets.
//
//   outputs of a source: the element offers the media, its thread pushes the packets
//   inputs of a sink:    a linked output or the application offers the media and pushes the packets
//
// All functions may be called from any thread, and none holds a lock of the port while it calls an
// element. A port lives as long as its element. Destroying an element waits for calls in progress
// through its links. Elements must not be linked in circles.
class KESTRO_API IPort : public base::object {
 public:
  // `codecs` is the list of accepted codec names, separated by commas, or "*".
  IPort(IElement& owner, bool input, char const* codecs);
  ~IPort() override;

  IElement& Owner() const { return _owner; }
  bool IsInput() const { return _input; }
  bool Match(char const* codec) const;

  // Offers a track; null withdraws it. An output accepts it if its codec matches and every linked
  // input accepts it. An input accepts it if its codec matches and its element accepts it. An
  // output keeps its first media until it is withdrawn. Offers to one port run one at a time. From
  // inside an AcceptMedia that an offer to this port has called, another offer is refused.
  [[nodiscard]] bool Offer(IMedia* media);
  void Withdraw() { static_cast<void>(Offer(nullptr)); }
  base::Ref<IMedia> Media() const;
  bool Carries(IMedia const* media) const;  // false for null
  // Announces that no track will come through this output, so that sinks do not wait for one.
  // Accepting a media later cancels this.
  void Silence();
  // Whether it is clear if packets will come: the port has a media, is silent, or is not linked.
  bool Settled() const;

  // Connects an output to an input of another element. The input must have no other link. If the
  // output has a media, it is offered to the input; if that is refused, the ports are not linked.
  [[nodiscard]] static bool Link(IPort& output, IPort& input);
  // Waits for calls in progress, but not from inside a packet or message handler: there they may
  // still be running after Unlink, and only the destructor waits for them.
  void Unlink();
  bool Linked() const;

  // Passes a packet on; see ISink::Deliver for the result. The caller keeps its reference. An
  // output with several links delivers a separate packet to each, with the same payload. The
  // packet's media must be the port's.
  [[nodiscard]] bool Push(Packet& packet);
  // Whether the linked sinks are ready for a first packet.
  bool Ready() const;

  // For elements. While an output is interrupted, a packet pushed through it stops waiting for
  // something that may never happen: room in a queue whose sink is not ready. The same happens if
  // the link is cut.
  void Interrupt(bool on);
  bool Interrupted() const;  // for inputs

 private:
  using Links = std::vector<std::shared_ptr<Connection>>;

  friend class ISink;
  class OfferTurn;

  static bool Connect(IPort& output, IPort& input, std::shared_ptr<Connection> const& link);
  bool OfferToLinks(IMedia* media);
  std::shared_ptr<Links const> Current() const;
  void Cut(bool wait);

  IElement& _owner;
  bool const _input;
  std::string const _codecs;

  mutable std::mutex _mutex;  // guards the members below; held briefly, never during a call
  base::Ref<IMedia> _media;
  bool _silent = false;
  // Replaced as a whole, never modified. Cut links stay until the calls through them have returned.
  std::shared_ptr<Links const> _links;

  std::condition_variable _offered;
  std::thread::id _offerer;  // thread whose offer is in progress
};

}  // namespace kestro::stream
