#include "stream/ParameterSetFilter.h"

#include <algorithm>
#include <cstring>

namespace kestro::stream {

ParameterSetFilter::~ParameterSetFilter() { Detach(); }

ParameterSetFilter::Track ParameterSetFilter::AddTrack(char const* codecs) {
  IPort* const input = AddPort(true, codecs);
  return {input, AddPort(false, codecs)};
}

// Inputs and outputs alternate.
IPort* ParameterSetFilter::OutputOf(IPort const* input) const {
  for (std::size_t i = 0; i + 1 < _ports.size(); i += 2)
    if (_ports[i].get() == input) return _ports[i + 1].get();
  return nullptr;
}

bool ParameterSetFilter::AcceptMedia(IPort& input, IMedia* media) {
  IPort* const output = OutputOf(&input);
  if (output == nullptr) return false;
  if (media != nullptr && !output->Carries(media)) output->Withdraw();
  return output->Offer(media);
}

bool ParameterSetFilter::Ready() const {
  return ISink::Ready() && std::all_of(_ports.begin(), _ports.end(), [](auto const& port) {
           return port->IsInput() || port->Ready();
         });
}

bool ParameterSetFilter::ReceivePacket(Packet& packet, void* context) {
  IPort* const output = OutputOf(static_cast<IPort*>(context));
  if (output == nullptr || packet.Media() == nullptr) return false;
  auto const extra = packet.Media()->ExtraData();
  auto const& sets = *extra;
  if (!packet.IsKey() || sets.empty()) return output->Push(packet);

  unsigned char const* const data = packet.Data();
  unsigned char const* const end = data + packet.Size();
  auto const zeros =
      static_cast<int>(std::find_if(data, end, [](auto b) { return b != 0; }) - data);
  // The last three zeros are the slice's start code. A frame that still has its sets has no other
  // zeros.
  int const room = zeros - 3;
  if (room <= 0) return output->Push(packet);
  auto const bytes = static_cast<int>(sets.size());
  if (bytes <= room && packet.Exclusive()) {
    packet.Offset(packet.Offset() + room - bytes);
    std::memcpy(packet.Data(), sets.data(), sets.size());
    return output->Push(packet);
  }
  auto const longer = Packet::New(bytes + packet.Size() - room);
  std::memcpy(longer->Data(), sets.data(), sets.size());
  std::memcpy(longer->Data() + bytes, data + room, static_cast<std::size_t>(packet.Size() - room));
  longer->Media(packet.Media());
  longer->Pts(packet.Pts());
  longer->Duration(packet.Duration());
  longer->Flags(packet.Flags());
  longer->Seq(packet.Seq());
  return output->Push(*longer);
}

}  // namespace kestro::stream
