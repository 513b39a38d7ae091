#include "common/VideoHeader.h"

#include "common/HeaderChunks.h"

namespace kestro::plugin::avi {

using base::Convert4;

namespace {
constexpr unsigned kScale = 10000;
}

IList* NewVideoStrl(char const* handler, int64 rate, int width, int height) {
  if (rate < 0 || rate > UINT32_MAX / kScale) return nullptr;
  auto* header = new cstrh;
  header->fccType = Convert4("vids");
  header->fccHandler = Convert4(handler);
  header->dwScale = kScale;
  header->dwRate = static_cast<unsigned>(rate) * kScale;
  header->dwSuggestedBufferSize = 192000;
  header->rcFrameRight = static_cast<unsigned short>(width);
  header->rcFrameBottom = static_cast<unsigned short>(height);

  auto* format = new cvstrf;
  format->biWidth = static_cast<unsigned>(width);
  format->biHeight = static_cast<unsigned>(height);
  format->biCompression = Convert4(handler);
  format->biSizeImage = format->biWidth * format->biHeight * 3;

  auto* strl = new cstrl;
  strl->Add(header);
  strl->Add(format);
  return strl;
}

}  // namespace kestro::plugin::avi
