// Where elements meet.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "base/Object.h"
#include "stream/IMedia.h"
#include "stream/Packet.h"

namespace kestro::stream {

class IElement;

// An input or output of an element, owned by it. Carries one track: first its media, then packets.
//
//   source->Outputs: Offer(media) by the element, Push(packet) by its thread
//   sink->Inputs:    Offer(media) and Push(packet) by a linked output, or by the application
//
// Links are made while the elements are closed or open. Unlink may be called at any time and waits
// for a packet under way.
class KESTRO_API IPort : public base::object {
 public:
  // `codecs`: the codec names it takes, separated by commas, or "*".
  IPort(IElement& owner, bool input, char const* codecs);
  ~IPort() override;

  IElement& Owner() const { return _owner; }
  bool IsInput() const { return _input; }
  bool Match(char const* codec) const;

  // Offers a track. An output takes it when its codec matches and every linked input takes it, an
  // input when its codec matches. An output keeps its first media until it is withdrawn with null.
  bool Offer(IMedia* media);
  IMedia* Media() const;
  // Says that no track will come through this output, so that sinks do not wait for one; a media
  // that is taken later ends it.
  void Silence();
  // Whether packets may be expected, or have been ruled out.
  bool Settled() const;

  // Connects an output with an input of another element, which has no other link. The media that
  // the output has is offered along.
  static bool Link(IPort& output, IPort& input);
  void Unlink();
  bool Linked() const;

  // Hands a packet on; see ISink::Deliver for what the answer means. The caller keeps its
  // reference. An output with several links delivers a packet of its own to each. The packet's
  // media must be the port's.
  bool Push(Packet& packet);
  // Whether the sinks behind it are ready for a first packet.
  bool Ready() const;

 private:
  void Disconnect(IPort& peer);

  IElement& _owner;
  bool const _input;
  std::string _codecs;
  base::Ref<IMedia> _media;
  bool _silent = false;
  mutable std::mutex _mutex;  // media and links, held while a packet goes through an output
  std::vector<IPort*> _peers;
};

}  // namespace kestro::stream
