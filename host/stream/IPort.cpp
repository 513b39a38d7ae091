#include "stream/IPort.h"

#include <algorithm>
#include <string_view>

#include "stream/Callout.h"
#include "stream/Connection.h"
#include "stream/IElement.h"

namespace kestro::stream {

IPort::IPort(IElement& owner, bool input, char const* codecs)
    : object(input ? "input" : "output"),
      _owner(owner),
      _input(input),
      _codecs(codecs != nullptr ? codecs : "*"),
      _links(std::make_shared<Links const>()) {}

IPort::~IPort() { Cut(true); }

bool IPort::Match(char const* codec) const {
  if (codec == nullptr) return false;
  if (_codecs == "*") return true;
  std::string_view rest = _codecs;
  while (!rest.empty()) {
    auto const comma = std::min(rest.find(','), rest.size());
    if (rest.substr(0, comma) == codec) return true;
    rest.remove_prefix(std::min(comma + 1, rest.size()));
  }
  return false;
}

// Lets one offer to a port run at a time.
class IPort::OfferTurn {
 public:
  explicit OfferTurn(IPort& port) : _port(port) {
    std::unique_lock lock(port._mutex);
    _mine = port._offerer != std::this_thread::get_id();
    if (!_mine) return;
    port._offered.wait(lock, [&port] { return port._offerer == std::thread::id(); });
    port._offerer = std::this_thread::get_id();
  }
  ~OfferTurn() {
    if (!_mine) return;
    std::lock_guard lock(_port._mutex);
    _port._offerer = std::thread::id();
    _port._offered.notify_all();
  }
  explicit operator bool() const { return _mine; }

 private:
  IPort& _port;
  bool _mine;
};

bool IPort::Offer(IMedia* media) {
  if (media != nullptr && !Match(media->Codec())) return false;
  OfferTurn const turn(*this);
  if (!turn) {
    KESTRO_ERROR("_offerer == self,an offer from inside AcceptMedia");
    return false;
  }
  if (_input) {
    Callout const callout;
    if (!_owner.AcceptMedia(*this, media)) return false;
  } else if (!OfferToLinks(media)) {
    return false;
  }
  auto held = base::Ref<IMedia>::Share(media);  // the previous media is released without the lock
  std::lock_guard lock(_mutex);
  std::swap(_media, held);
  _silent = false;
  return true;
}

bool IPort::OfferToLinks(IMedia* media) {
  auto const held = Media();
  if (media == nullptr && !held) return true;
  if (media != nullptr && held && held.get() != media) return false;
  auto const links = Current();
  auto const takes = [](auto const& link, IMedia* what) {
    Connection::Call const call(*link);
    return !call || call->Offer(what);
  };
  auto const refuses = std::find_if_not(links->begin(), links->end(),
                                        [&](auto const& link) { return takes(link, media); });
  // Give the inputs before it their previous media back.
  if (refuses != links->end())
    std::for_each(links->begin(), refuses, [&](auto const& link) { takes(link, held.get()); });
  return refuses == links->end();
}

void IPort::Silence() {
  {
    std::lock_guard lock(_mutex);
    _silent = true;
  }
  if (_input) return;
  auto const links = Current();
  for (auto const& link : *links)
    if (Connection::Call const call(*link); call) call->Silence();
}

bool IPort::Settled() const {
  {
    std::lock_guard lock(_mutex);
    if (_media || _silent) return true;
  }
  return !Linked();
}

base::Ref<IMedia> IPort::Media() const {
  std::lock_guard lock(_mutex);
  return _media;
}

bool IPort::Carries(IMedia const* media) const {
  std::lock_guard lock(_mutex);
  return media != nullptr && _media.get() == media;
}

bool IPort::Link(IPort& output, IPort& input) {
  if (output._input || !input._input || &output._owner == &input._owner) return false;
  auto const link = std::make_shared<Connection>(input);
  {
    OfferTurn const turn(output);  // other offers run before or after linking
    if (!turn || !Connect(output, input, link)) return false;
    auto const media = output.Media();
    if (!media || input.Offer(media.get())) return true;
  }
  link->Cut(!Callout::Active());
  return false;
}

bool IPort::Connect(IPort& output, IPort& input, std::shared_ptr<Connection> const& link) {
  std::scoped_lock lock(output._mutex, input._mutex);
  auto const live = [](auto const& other) { return other->Live(); };
  if (std::any_of(input._links->begin(), input._links->end(), live)) return false;
  for (IPort* port : {&output, &input}) {
    auto links = std::make_shared<Links>();
    std::copy_if(port->_links->begin(), port->_links->end(), std::back_inserter(*links),
                 [](auto const& other) { return !other->Dead(); });
    links->push_back(link);
    port->_links = std::move(links);
  }
  return true;
}

std::shared_ptr<IPort::Links const> IPort::Current() const {
  std::lock_guard lock(_mutex);
  return _links;
}

void IPort::Unlink() { Cut(!Callout::Active()); }

void IPort::Cut(bool wait) {
  auto const links = Current();
  for (auto const& link : *links) link->Cut(false);
  for (auto const& link : *links) link->Cut(wait);
}

bool IPort::Linked() const {
  auto const links = Current();
  return std::any_of(links->begin(), links->end(), [](auto const& link) { return link->Live(); });
}

bool IPort::Push(Packet& packet) {
  if (_input) return _owner.Deliver(packet, *this);
  auto const links = Current();
  bool reached = false;
  bool taken = true;
  for (auto const& link : *links) {
    Connection::Call const call(*link);
    if (!call) continue;
    reached = true;
    // A sink may move the packet's start, so each of several sinks gets its own packet.
    if (link == links->back()) {
      taken = call->Push(packet) && taken;
    } else {
      auto own = packet.Share();
      taken = call->Push(*own) && taken;
    }
  }
  return reached && taken;
}

bool IPort::Ready() const {
  auto const links = Current();
  return std::all_of(links->begin(), links->end(), [](auto const& link) {
    Connection::Call const call(*link);
    return !call || call->_owner.Ready();
  });
}

void IPort::Interrupt(bool on) {
  auto const links = Current();
  for (auto const& link : *links) link->Interrupt(on);
}

bool IPort::Interrupted() const {
  auto const links = Current();
  return std::any_of(links->begin(), links->end(),
                     [](auto const& link) { return link->Interrupted(); });
}

}  // namespace kestro::stream
