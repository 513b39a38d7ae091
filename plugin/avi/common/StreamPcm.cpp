#include "common/StreamPcm.h"

namespace kestro::plugin::avi {

using base::Convert4;

bool StreamPcm::muxConfig(Object*) {
  int rate, channel, width, depth, samples;
  if (!_media->Get("rate", rate) || !_media->Get("channel", channel) ||
      !_media->Get("width", width) || !_media->Get("depth", depth) ||
      !_media->Get("samples", samples))
    return false;
  if (rate <= 0 || channel <= 0 || width <= 0 || depth < 8) return false;

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

}  // namespace kestro::plugin::avi
