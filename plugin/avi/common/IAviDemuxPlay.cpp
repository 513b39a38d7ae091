// The play processes: which track gives the next packet.
#include "common/IAviDemux.h"

namespace kestro::plugin::avi {

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
  return Take(io, best);
}

Packet* IAviDemux::ProcessVideo(IO& io) { return Alone(io, VideoStream(_videoIndex)); }

Packet* IAviDemux::ProcessAudio(IO& io) {
  for (IStream* stream : _streams)
    if (stream->IsAudio()) return Alone(io, stream);
  return nullptr;
}

Packet* IAviDemux::Alone(IO& io, IStream* stream) {
  if (stream == nullptr) return nullptr;
  _currentPts = stream->DemuxCurrentPts();
  Follow(stream, _currentPts);
  return Take(io, stream);
}

Packet* IAviDemux::ProcessFast(IO& io) {
  IStream* const video = VideoStream(_videoIndex);
  if (video == nullptr) return nullptr;
  ChunkParam const* const before = video->DemuxCurrent();
  while (!video->DemuxISEnd() && !video->OnKey()) video->DemuxNext();
  if (video->DemuxISEnd()) {
    // No key frame is left: stay behind the one that was seen.
    while (video->DemuxCurrent() != before) video->DemuxPrev();
    return nullptr;
  }
  _currentPts = video->DemuxCurrentPts();
  Follow(video, _currentPts);
  Packet* const packet = Take(io, video);
  if (packet != nullptr && packet != Packet::ReadFailure() &&
      video->end() - video->DemuxCurrent() < video->GetKeyFrameGap())
    packet->Flags(packet->Flags() | video->DemuxEosFlags());
  return packet;
}

Packet* IAviDemux::ProcessBack(IO& io) {
  IStream* const video = VideoStream(_videoIndex);
  if (video == nullptr || video->begin() == video->end()) return nullptr;
  ChunkParam const* const before = video->DemuxCurrent();
  if (!_seeked && before <= video->begin() + 1) return nullptr;  // the first was seen last
  if (!_seeked || !video->OnKey()) {
    // Over the frame that was seen last, and on to a key frame.
    video->DemuxPrev();
    do video->DemuxPrev();
    while (!video->OnKey() && video->DemuxCurrent() != video->begin());
  }
  int64 const pts = video->DemuxCurrentPts();
  if (pts == _currentPts) {
    // Nothing is earlier: stay behind the frame that was seen.
    while (video->DemuxCurrent() != before) video->DemuxNext();
    return nullptr;
  }
  _currentPts = pts;
  Follow(video, pts);
  Packet* const packet = Take(io, video);
  if (packet != nullptr && packet != Packet::ReadFailure() &&
      video->DemuxCurrent() == video->begin() + 1)
    packet->Flags(packet->Flags() | video->DemuxEosFlags());
  return packet;
}

// Takes the other tracks along to a time.
void IAviDemux::Follow(IStream const* leader, int64 pts) {
  for (IStream* stream : _streams) {
    int64 time = pts;
    if (stream != leader) stream->SeekToKey(time);
  }
}

Packet* IAviDemux::Take(IO& io, IStream* stream) {
  _seeked = false;
  return stream->GetPacket(io, 0);
}

}  // namespace kestro::plugin::avi
