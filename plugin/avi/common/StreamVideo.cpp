#include "common/StreamVideo.h"

#include <cstdio>

#include "base/Console.h"
#include "common/DataChunks.h"
#include "common/StartCode.h"

namespace kestro::plugin::avi {

using base::Convert4;

namespace {

constexpr unsigned kScale = 10000;

// Adds a chunk with what the tag set holds for a track, if it holds something.
template <class Chunk>
void AddTagged(IList& strl, Object& tags, char const* buffers, char const* sizes, int track) {
  void** data = nullptr;
  unsigned* bytes = nullptr;
  if (!tags.Get(buffers, data) || !tags.Get(sizes, bytes) || data == nullptr || bytes == nullptr)
    return;
  if (data[track] != nullptr && bytes[track] != 0)
    strl.Add(new Chunk(static_cast<unsigned char*>(data[track]), bytes[track]));
}

}  // namespace

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

bool StreamAnnexB::muxConfig(Object* vidtag) {
  if (vidtag == nullptr) return false;
  int width = 1920;
  int height = 1080;
  bool interlace = false;
  if (!_media->Get("width", width)) {
    KESTRO_ERROR("!_media->Get(\"width\", width)");
    return false;
  }
  if (!_media->Get("height", height)) {
    KESTRO_ERROR("!_media->Get(\"height\", height)");
    return false;
  }
  if (!_media->Get("interlace", interlace)) {
    KESTRO_ERROR("!_media->Get(\"interlace\", interlace)");
    return false;
  }
  if (interlace) height = static_cast<int>(static_cast<unsigned>(height) * 2);  // both fields
  std::printf("\n*************config:%d,%d\n", width, height);

  IList* const strl = NewVideoStrl(_handler, _frameRate.Whole(), width, height);
  if (strl == nullptr) return false;
  AddTagged<cstrd>(*strl, *vidtag, "strdbuf", "strdsize", _trackId);
  AddTagged<cstrn>(*strl, *vidtag, "strnbuf", "strnsize", _trackId);
  _strl = strl;
  if (_para->idx1WithTmpFile >= 1) _spillBatch = Batch(_frameRate.Whole(), _para->idx1WithTmpFile);
  return true;
}

int StreamAnnexB::MuxOffset(Packet const& packet) {
  return FindNal(packet.Data(), packet.Size(),
                 [this](unsigned char nal) { return StartsFrame(nal); });
}

base::PropertyList StreamAnnexB::Properties() {
  base::PropertyList list;
  list.Member<StreamAnnexB>("frameRate", &StreamAnnexB::_frameRate,
                            "frames per second of the header, set before configuring");
  return list;
}

}  // namespace kestro::plugin::avi
