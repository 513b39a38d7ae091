#include "stream/IPort.h"

#include <algorithm>
#include <string_view>

#include "stream/IElement.h"

namespace kestro::stream {

IPort::IPort(IElement& owner, bool input, char const* codecs)
    : object(input ? "input" : "output"),
      _owner(owner),
      _input(input),
      _codecs(codecs != nullptr ? codecs : "*") {}

IPort::~IPort() { Unlink(); }

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

bool IPort::Offer(IMedia* media) {
  if (media != nullptr && !Match(media->Codec())) return false;
  if (_input && !_owner.AcceptMedia(*this, media)) return false;
  std::lock_guard lock(_mutex);
  if (!_input) {
    if (media != nullptr && _media && _media.get() != media) return false;
    auto const takes = [&](IPort* peer) { return peer->Offer(media); };
    auto const refuses = std::find_if_not(_peers.begin(), _peers.end(), takes);
    if (refuses != _peers.end()) {
      // Those before it get back what they had.
      std::for_each(_peers.begin(), refuses, [&](IPort* peer) { peer->Offer(_media.get()); });
      return false;
    }
  }
  _media = base::Ref<IMedia>::Share(media);
  _silent = false;
  return true;
}

void IPort::Silence() {
  std::lock_guard lock(_mutex);
  _silent = true;
  if (!_input)
    for (IPort* peer : _peers) peer->Silence();
}

bool IPort::Settled() const {
  std::lock_guard lock(_mutex);
  return _media || _silent || _peers.empty();
}

IMedia* IPort::Media() const {
  std::lock_guard lock(_mutex);
  return _media.get();
}

bool IPort::Link(IPort& output, IPort& input) {
  if (output._input || !input._input || &output._owner == &input._owner) return false;
  {
    std::scoped_lock lock(output._mutex, input._mutex);
    if (!input._peers.empty()) return false;
    output._peers.push_back(&input);
    input._peers.push_back(&output);
  }
  IMedia* media = output.Media();
  if (media == nullptr || input.Offer(media)) return true;
  input.Unlink();
  return false;
}

void IPort::Unlink() {
  std::vector<IPort*> peers;
  {
    std::lock_guard lock(_mutex);
    peers.swap(_peers);
  }
  for (IPort* peer : peers) peer->Disconnect(*this);
}

void IPort::Disconnect(IPort& peer) {
  std::lock_guard lock(_mutex);
  _peers.erase(std::remove(_peers.begin(), _peers.end(), &peer), _peers.end());
}

bool IPort::Linked() const {
  std::lock_guard lock(_mutex);
  return !_peers.empty();
}

bool IPort::Push(Packet& packet) {
  if (_input) {
    packet.Prefetch();
    return _owner.Deliver(packet, *this);
  }
  std::lock_guard lock(_mutex);
  bool taken = !_peers.empty();
  for (IPort* peer : _peers) {
    // A sink may move the packet's start: each of several gets a packet of its own.
    if (peer == _peers.back()) {
      taken = peer->Push(packet) && taken;
    } else {
      auto own = base::Ref<Packet>::Take(packet.Share());
      taken = peer->Push(*own) && taken;
    }
  }
  return taken;
}

bool IPort::Ready() const {
  std::lock_guard lock(_mutex);
  return std::all_of(_peers.begin(), _peers.end(),
                     [](IPort* peer) { return peer->_owner.Ready(); });
}

}  // namespace kestro::stream
