#include "common/StreamPcm.h"

#include <algorithm>

namespace kestro::plugin::avi {

using base::Convert4;

bool StreamPcm::muxConfig(Object*) {
  int rate, channel, width, depth, samples;
  if (!_media->Get("rate", rate) || !_media->Get("channel", channel) ||
      !_media->Get("width", width) || !_media->Get("depth", depth) ||
      !_media->Get("samples", samples))
    return false;
  if (rate <= 0 || channel <= 0 || width <= 0 || depth < 8) return false;
  // The header has 16 bits for the block size, and for the bits of a sample.
  if (int64(channel) * std::max(width, depth / 8) > 0xFFFF || width > 0xFFFF / 8) return false;

  auto const u = [](int64 value) { return static_cast<unsigned>(value); };
  auto* header = new cstrh;
  header->fccType = Convert4("auds");
  header->fccHandler = Convert4("PCM");
  header->dwScale = u(channel) * u(depth / 8);
  header->dwRate = u(channel) * u(int64(depth) * rate / 8);
  header->dwSuggestedBufferSize = 32000;
  header->dwSampleSize = u(channel) * u(width);

  auto* format = new castrf;
  format->wFormatTag = 1;
  format->nChannels = static_cast<unsigned short>(channel);
  format->nSamplesPerSec = u(rate);
  format->nAvgBytesPerSec = u(channel) * u(width) * u(rate);
  format->nBlockAlign = static_cast<unsigned short>(header->dwScale);
  format->wBitsPerSample = static_cast<unsigned short>(width * 8);
  _blockAlign = format->nBlockAlign;

  _strl = new cstrl;
  _strl->Add(header);
  _strl->Add(format);
  if (_para->idx1WithTmpFile >= 1)
    _spillBatch = samples <= 0 ? 0 : Batch(rate, _para->idx1WithTmpFile, samples);
  return true;
}

bool StreamPcm::muxUpdate() {
  if (Header() != nullptr && _duration == 0) _duration = 1;
  return true;
}

bool StreamPcm::demuxConfig(Object*) {
  _media = IMedia::New("pcm");
  cstrh const* const header = Header();
  auto* const format = dynamic_cast<castrf*>(_strl->Find("strf"));
  if (header == nullptr || format == nullptr) return false;
  _blockAlign = header->dwSampleSize;
  if (format->nBlockAlign != 0) _sampleBytes = format->nBlockAlign;
  int64 const channels = format->nChannels;
  int64 const width = channels == 0 ? 0 : format->nBlockAlign / channels;
  _media->Set("rate", static_cast<int64>(format->nSamplesPerSec));
  _media->Set("channel", channels);
  _media->Set("depth", channels == 0 ? 0 : int64(format->nBlockAlign) * 8 / channels);
  _media->Set("width", width);
  _media->Set("samples", int64(0));
  if (format->nAvgBytesPerSec != 0)
    _duration =
        static_cast<int64>(base::uint64(_count) * _blockAlign * 1000 / format->nAvgBytesPerSec);
  return true;
}

bool StreamPcm::SetDurPerFrame() {
  unsigned rate = 0;
  if (_media != nullptr) _media->Get("rate", rate);
  if (_list->empty() || DemuxISEnd() || rate == 0) return true;
  unsigned const samples = _cursor->size / _sampleBytes;
  _media->Set("samples", static_cast<int64>(samples));
  auto const total = base::uint64(_cursor->size) * _list->size() / _sampleBytes;
  if (total != _count) {
    _count = static_cast<unsigned>(total);
    _duration = static_cast<int64>(total * 1000 / rate);
  }
  ShareDuration();
  SetDurations(_durPerFrame);
  return true;
}

Packet* StreamPcm::GetPacket(IO& io, int64) {
  ShareDuration();
  Packet* const packet = IStream::GetPacket(io, 0);
  if (packet != nullptr && packet != Packet::ReadFailure())
    packet->Flags(packet->Flags() | Packet::kKey);
  return packet;
}

void StreamPcm::AddListChunk(ChunkParam& chunk) {
  chunk.flags = 1;
  _list->push_back(chunk);
}

}  // namespace kestro::plugin::avi
