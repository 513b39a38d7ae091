#include "common/StreamTxt.h"

#include <algorithm>
#include <cstdio>

namespace kestro::plugin::avi {

bool StreamTxt::muxConfig(Object* vidtag) {
  if (vidtag == nullptr) return false;
  Fraction rate;
  _media->Get("framerate", rate);
  if (rate.Whole() < 0 || rate.Whole() > UINT32_MAX / 10000) return false;
  auto* header = new cstrh;
  header->fccType = base::Convert4("txts");
  header->dwScale = 10000;
  header->dwRate = static_cast<unsigned>(rate.Whole()) * 10000;
  _strl = new cstrl;
  _strl->Add(header);
  _strl->Add(new ctstrf);
  return true;
}

int StreamTxt::WriteData(IO& io, Packet& packet) {
  auto const size = static_cast<unsigned>(packet.Size());
  int const written = IChunkStream::WriteData(io, packet);
  if (size % 2 != 0) ++_list->back().size;
  _maxPayload = std::max(_maxPayload, size);
  return written;
}

bool StreamTxt::muxUpdate() {
  cstrh* const header = Header();
  if (header == nullptr) return true;
  if (_duration == 0) _duration = 1;
  header->dwSuggestedBufferSize = 1;
  while (header->dwSuggestedBufferSize < _maxPayload) header->dwSuggestedBufferSize *= 2;
  return true;
}

bool StreamTxt::demuxConfig(Object*) {
  _media = IMedia::New("txt");
  if (_count != 0) _durPerFrame = static_cast<unsigned>(_duration * 1000 / _count);
  if (_strl->Find("strf") == nullptr) return false;
  std::printf("\n++txt++++\n");
  return true;
}

bool StreamTxt::SetDurPerFrame() {
  SetDurations(_durPerFrame);
  return true;
}

Packet* StreamTxt::GetPacket(IO& io, int64) {
  ShareDuration();
  Packet* const packet = IStream::GetPacket(io, 0);
  if (packet != nullptr && packet != Packet::ReadFailure()) packet->Flags(Packet::kKey);
  return packet;
}

}  // namespace kestro::plugin::avi
