// Where elements meet.
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

// An input or output of an element, owned by it. Carries one track: first its media, then packets.
//
//   source->Outputs: Offer(media) by the element, Push(packet) by its thread
//   sink->Inputs:    Offer(media) and Push(packet) by a linked output, or by the application
//
// Every operation may be called from any thread, and none holds a lock of the port while it calls
// an element. A port lives as long as its element; destroying an element waits for calls that go
// through its links. Elements are not linked in circles.
class KESTRO_API IPort : public base::object {
 public:
  // `codecs`: the codec names it takes, separated by commas, or "*".
  IPort(IElement& owner, bool input, char const* codecs);
  ~IPort() override;

  IElement& Owner() const { return _owner; }
  bool IsInput() const { return _input; }
  bool Match(char const* codec) const;

  // Offers a track; null withdraws it. An output takes it when its codec matches and every linked
  // input takes it, an input when its codec matches and its element accepts it. An output keeps its
  // first media until it is withdrawn. Offers to one port happen one after the other; one from
  // inside the AcceptMedia that another has called is refused.
  [[nodiscard]] bool Offer(IMedia* media);
  void Withdraw() { static_cast<void>(Offer(nullptr)); }
  base::Ref<IMedia> Media() const;
  bool Carries(IMedia const* media) const;  // false for null
  // Announces that no track will come through this output, so that sinks do not wait for one; a
  // media that is taken later ends it.
  void Silence();
  // Whether packets may be expected, or have been ruled out.
  bool Settled() const;

  // Connects an output with an input of another element, which has no other link. The media that
  // the output has is offered along.
  [[nodiscard]] static bool Link(IPort& output, IPort& input);
  // Waits for calls under way, but not from inside a packet or message handler: then they may still
  // finish, and only the destructor waits for them.
  void Unlink();
  bool Linked() const;

  // Hands a packet on; see ISink::Deliver for what the answer means. The caller keeps its
  // reference. An output with several links delivers a packet of its own to each. The packet's
  // media must be the port's.
  [[nodiscard]] bool Push(Packet& packet);
  // Whether the linked sinks are ready for a first packet.
  bool Ready() const;

  // For elements. While an output is interrupted, a packet pushed through it gives up waiting for
  // what may never come: room in a queue whose sink is not ready. So is one whose link is cut.
  void Interrupt(bool on);
  bool Interrupted() const;  // of an input

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

  mutable std::mutex _mutex;  // of what follows; held for a few instructions, never during a call
  base::Ref<IMedia> _media;
  bool _silent = false;
  // Replaced, never changed. Those that were cut stay until the calls through them have ended.
  std::shared_ptr<Links const> _links;

  std::condition_variable _offered;
  std::thread::id _offerer;  // the thread whose offer is under way
};

}  // namespace kestro::stream
