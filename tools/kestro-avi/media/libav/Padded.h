// Creates packets of libavcodec.
#pragma once

#include <cstring>
#include <new>

#include "media/libav/Libav.h"

namespace kestro::tool {

// A packet with a copy of the data, followed by the zeros that parsers need.
inline PacketPtr Padded(std::uint8_t const* data, std::size_t size) {
  PacketPtr packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>(size)) < 0) throw std::bad_alloc();
  std::memcpy(packet->data, data, size);
  return packet;
}

}  // namespace kestro::tool
