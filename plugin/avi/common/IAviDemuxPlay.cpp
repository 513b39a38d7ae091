// The play processes, which choose the track of the next packet.
#include "common/IAviDemux.h"

namespace kestro::plugin::avi {

namespace {
// Marks a packet as the last of its track.
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
    // The track whose next chunk comes first in the file, or whose time is earlier.
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
  // Fewer entries are left than a key frame interval has.
  if (video->end() - video->DemuxCurrent() < video->GetKeyFrameGap()) MarkEnd(packet, *video);
  return packet;
}

Packet* IAviDemux::ProcessBack(IO& io) {
  IStream* const video = VideoStream(_videoIndex);
  if (video == nullptr) return nullptr;
  video->DemuxPrev();  // the frame that was read last
  do video->DemuxPrev();
  while (!video->OnKey() && video->DemuxCurrent() != video->begin());
  if (video->DemuxCurrentPts() == _currentPts) return nullptr;  // no frame is earlier
  Packet* const packet = Lead(io, *video);
  if (video->DemuxCurrent() == video->begin() + 1) MarkEnd(packet, *video);
  return packet;
}

// Returns the next packet of a track and moves the others to its time.
Packet* IAviDemux::Lead(IO& io, IStream& leader) {
  _currentPts = leader.DemuxCurrentPts();
  for (IStream* stream : _streams) {
    int64 time = _currentPts;
    if (stream != &leader) stream->SeekFar(time);
  }
  return leader.GetPacket(io, 0);
}

}  // namespace kestro::plugin::avi
