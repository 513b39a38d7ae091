#include "Packets.h"

#include <algorithm>
#include <cstring>

#include "base/LittleEndian.h"

namespace kestro::tool {

using base::Ref;
using stream::IMedia;
using stream::Packet;

// The header of a chunk, which the stream of motion JPEG leaves to whoever makes its packets:
// "NNdc" with the track's number, and the size, little-endian.
static constexpr std::size_t kChunkHead = 8;

static void WriteChunkHead(std::size_t track, std::size_t size, std::uint8_t* out) {
  out[0] = static_cast<std::uint8_t>('0' + track / 10 % 10);
  out[1] = static_cast<std::uint8_t>('0' + track % 10);
  out[2] = 'd';
  out[3] = 'c';
  base::Store32(out + 4, static_cast<unsigned>(size));
}

static Ref<IMedia> NewMedia(TrackInfo const& info) {
  auto media = Ref<IMedia>::Take(IMedia::New(info.codec));
  switch (info.kind) {
    case TrackInfo::kVideo:
      media->Set("width", info.width);
      media->Set("height", info.height);
      media->Set("interlace", false);
      media->Set("framerate", info.frameRate);
      break;
    case TrackInfo::kSound:
      media->Set("rate", info.rate);
      media->Set("channel", info.channels);
      media->Set("width", info.bits / 8);
      media->Set("depth", info.bits);
      media->Set("samples", info.samples);
      break;
    case TrackInfo::kText:
      media->Set("framerate", info.frameRate);
      break;
  }
  return media;
}

Packets::Packets(std::vector<Track*> const& tracks) {
  for (Track const* track : tracks) {
    _media.push_back(NewMedia(track->Info()));
    _headed.push_back(std::strcmp(track->Info().codec, "mjpg") == 0);
  }
}

Ref<Packet> Packets::New(std::size_t track, TimedPacket const& packet) const {
  std::size_t const head = _headed[track] ? kChunkHead : 0;
  auto made = Ref<Packet>::Take(Packet::New(static_cast<int>(head + packet.data.size())));
  if (head != 0) WriteChunkHead(track, packet.data.size(), made->Data());
  std::copy(packet.data.begin(), packet.data.end(), made->Data() + head);
  made->Media(Media(track));
  made->Pts(packet.time_ns);
  made->Duration(packet.duration_ns);
  if (packet.key) made->Flags(Packet::kKey);
  return made;
}

}  // namespace kestro::tool
