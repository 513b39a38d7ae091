// The play processes: which track gives the next packet.
#include "common/IAviDemux.h"

namespace kestro::plugin::avi {

namespace {
// Puts the mark of the end on a packet of a track.
void MarkEnd(Packet* packet, IStream const& stream) {
  if (packet != nullptr && packet != Packet::ReadFailure())
    packet->Flags(packet->Flags() | stream.DemuxEosFlags());
}
}  // namespace

Packet* IAviDemux::ProcessNormal(IO& io) {
  IStream const* const video = VideoStream(_videoIndex);
  IStream* best = nullptr;
  for (IStream* stream : _streams) {
    if (stream->Media() == nullptr || (stream->IsVideo() && stream != video)) continue;
    ChunkParam const* const next = stream->DemuxPeek();
    if (next == nullptr) continue;
    // By place in the file, and by time where that does not tell.
    if (best == nullptr || next->offset < best->DemuxPeek()->offset ||
        static_cast<base::uint64>(stream->DemuxCurrentPts()) <
            static_cast<base::uint64>(best->DemuxCurrentPts()))
      best = stream;
  }
  if (best == nullptr) return nullptr;
  _currentPts = best->DemuxCurrentPts();
  return best->GetPacket(io, 0);
}

Packet* IAviDemux::ProcessVideo(IO& io) {
  IStream* const video = VideoStream(_videoIndex);
  return video != nullptr ? Lead(io, *video) : nullptr;
}

Packet* IAviDemux::ProcessAudio(IO& io) {
  for (IStream* stream : _streams)
    if (stream->IsAudio()) return Lead(io, *stream);
  return nullptr;
}

Packet* IAviDemux::ProcessFast(IO& io) {
  IStream* const video = VideoStream(_videoIndex);
  if (video == nullptr) return nullptr;
  while (!video->DemuxISEnd() && !video->OnKey()) video->DemuxNext();
  Packet* const packet = Lead(io, *video);
  // Fewer entries are left than there are from key frame to key frame.
  if (video->end() - video->DemuxCurrent() < video->GetKeyFrameGap()) MarkEnd(packet, *video);
  return packet;
}

Packet* IAviDemux::ProcessBack(IO& io) {
  IStream* const video = VideoStream(_videoIndex);
  if (video == nullptr) return nullptr;
  video->DemuxPrev();  // over the frame that was read last
  do video->DemuxPrev();
  while (!video->OnKey() && video->DemuxCurrent() != video->begin());
  if (video->DemuxCurrentPts() == _currentPts) return nullptr;  // no frame is earlier
  Packet* const packet = Lead(io, *video);
  if (video->DemuxCurrent() == video->begin() + 1) MarkEnd(packet, *video);
  return packet;
}

// The next packet of a track; the others are moved to its time.
Packet* IAviDemux::Lead(IO& io, IStream& leader) {
  _currentPts = leader.DemuxCurrentPts();
  for (IStream* stream : _streams) {
    int64 time = _currentPts;
    if (stream != &leader) stream->SeekFar(time);
  }
  return leader.GetPacket(io, 0);
}

}  // namespace kestro::plugin::avi
