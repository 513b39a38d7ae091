#include "recorder/PacketRing.h"

#include <utility>

namespace kestro::record {

using stream::Packet;

PacketRing::PacketRing(std::size_t tracks, std::size_t lead, std::uint64_t maxBytes,
                       Dropped dropped)
    : _tracks(tracks), _lead(lead), _maxBytes(maxBytes), _dropped(std::move(dropped)) {}

bool PacketRing::Add(std::size_t track, PacketRef packet, bool passed) {
  std::uint64_t const bytes = static_cast<std::uint64_t>(packet->Size()) + kOverhead;
  bool const lead = track == _lead, key = lead && packet->IsKey();
  bool const starts = !lead || key;
  bool const held = (starts || !_groups.empty()) && MakeRoom(track, *packet, bytes) &&
                    (starts || !_groups.empty());
  if (!held) {
    if (packet->IsKey() && !passed) _dropped(track, *packet);
    _lost |= lead && !passed;
    return false;
  }
  if (key) _groups.push_back({_order, packet->Pts()});
  Track& to = _tracks[track];
  to.items.push_back({std::move(packet), _order++, bytes});
  if (passed) to.passed = to.items.size();
  _bytes += bytes;
  return true;
}

// False when there can be no room.
bool PacketRing::MakeRoom(std::size_t track, Packet const& packet, std::uint64_t bytes) {
  bool const key = track == _lead && packet.IsKey();
  while (_bytes + bytes > _maxBytes) {
    _overflowed |= !_groups.empty();
    if (_groups.size() > 1)
      DropGroup(_groups[1].begin_ns);
    else if (!_groups.empty() && key)
      DropGroup(packet.Pts());
    else if (!_groups.empty())
      DropAll();
    else if (!DropOldest())
      return false;
  }
  return true;
}

void PacketRing::DropBefore(std::int64_t time_ns) {
  while (_groups.size() > 1 && _groups[1].begin_ns <= time_ns) DropGroup(_groups[1].begin_ns);
}

void PacketRing::DropFirst(std::size_t track) {
  Track& from = _tracks[track];
  Item const& first = from.items.front();
  bool const passed = from.passed > 0;
  if (passed) --from.passed;
  if (!passed && first.packet->IsKey()) _dropped(track, *first.packet);
  _lost |= !passed && track == _lead;
  _bytes -= first.bytes;
  from.items.pop_front();
}

// Drops the first group, and the packets of other tracks that end before the next one.
void PacketRing::DropGroup(std::int64_t next_ns) {
  _groups.pop_front();
  auto const& lead = _tracks[_lead].items;
  while (!lead.empty() && (_groups.empty() || lead.front().order < _groups.front().order))
    DropFirst(_lead);
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    auto const& items = _tracks[i].items;
    while (i != _lead && !items.empty() &&
           items.front().packet->Pts() + items.front().packet->Duration() <= next_ns)
      DropFirst(i);
  }
}

void PacketRing::DropAll() {
  _groups.clear();
  for (std::size_t i = 0; i < _tracks.size(); ++i)
    while (!_tracks[i].items.empty()) DropFirst(i);
}

// Drops a packet of another track than the leading one, which has none.
bool PacketRing::DropOldest() {
  std::size_t oldest = _tracks.size();
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    auto const& items = _tracks[i].items;
    if (items.empty()) continue;
    if (oldest == _tracks.size() || items.front().order < _tracks[oldest].items.front().order)
      oldest = i;
  }
  if (oldest == _tracks.size()) return false;
  DropFirst(oldest);
  return true;
}

void PacketRing::Rewind() {
  for (Track& track : _tracks) track.passed = 0;
  _lost = false;
}

Packet* PacketRing::Front(std::size_t track) const {
  Track const& from = _tracks[track];
  return from.passed < from.items.size() ? from.items[from.passed].packet.get() : nullptr;
}

std::uint64_t PacketRing::Order(std::size_t track) const {
  Track const& from = _tracks[track];
  return from.items[from.passed].order;
}

}  // namespace kestro::record
