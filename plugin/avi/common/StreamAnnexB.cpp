#include "common/StreamAnnexB.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/Console.h"
#include "common/DataChunks.h"
#include "common/VideoHeader.h"

namespace kestro::plugin::avi {

namespace {

// Adds a chunk with the data that the tag set has for a track, if any.
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

bool StreamAnnexB::muxConfig(Object* vidtag) {
  if (vidtag == nullptr) return false;
  int width = 1920;
  int height = 1080;
  bool interlace = false;
  if (!_media->Get("width", width)) {
    KESTRO_ERROR_AT(_source, __func__, "!_media->Get(\"width\", width)");
    return false;
  }
  if (!_media->Get("height", height)) {
    KESTRO_ERROR_AT(_source, __func__, "!_media->Get(\"height\", height)");
    return false;
  }
  if (!_media->Get("interlace", interlace)) {
    KESTRO_ERROR_AT(_source, __func__, "!_media->Get(\"interlace\", interlace)");
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
  auto const size = static_cast<std::size_t>(packet.Size());
  return static_cast<int>(stream::UnstoredBytes(_codec, packet.Data(), size));
}

bool StreamAnnexB::demuxConfig(Object*) {
  _media = IMedia::New(Name());
  _durPerFrame =
      _count == 0 ? 0 : static_cast<unsigned>(static_cast<base::uint64>(_duration) * 1000 / _count);
  auto* format = dynamic_cast<cvstrf*>(_strl->Find("strf"));
  if (format == nullptr) return false;
  _media->Set("width", static_cast<int64>(format->biWidth));
  _media->Set("height", static_cast<int64>(format->biHeight));
  _media->Set("framerate", Fraction(_durPerFrame == 0 ? 0 : 1000000 / _durPerFrame, 1));
  _media->Set("interlace", false);
  std::printf("\n++%s++++:%d,%d,%d\n", Name(), static_cast<int>(_durPerFrame),
              static_cast<int>(format->biWidth), static_cast<int>(format->biHeight));
  return true;
}

bool StreamAnnexB::SetDurPerFrame() {
  SetDurations(_durPerFrame);
  return true;
}

int64 StreamAnnexB::GetKeyFrameGap() {
  int64 gap = 1;
  _media->Get("gop", gap);
  return gap;
}

bool StreamAnnexB::SetKeyFrameGap() {
  // The first two entries do not count: a file may begin with two key frames.
  std::size_t const first = std::min<std::size_t>(2, _list->size());
  auto const key = std::find_if(_list->begin() + static_cast<std::ptrdiff_t>(first), _list->end(),
                                [](ChunkParam const& chunk) { return (chunk.flags & 1) != 0; });
  return _media->Set("gop", static_cast<int64>(key - _list->begin()));
}

Packet* StreamAnnexB::GetPacket(IO& io, int64) {
  if (DemuxISEnd()) return nullptr;
  Packet* const pkt = IStream::GetPacket(io, 0);
  if (pkt == nullptr) {
    KESTRO_ERROR_AT(_source, __func__, "!pkt,IStream GetPacket null!");
    return nullptr;
  }
  if (pkt == Packet::ReadFailure()) {
    KESTRO_ERROR_AT(_source, __func__, "pkt == (Packet*)-1,IStream GetPacket error!");
    return pkt;
  }
  if (_parameterSets.empty()) SetMediaInfo(*pkt);
  int const leading = DemuxOffset(*pkt);
  if (leading > 0) std::memset(pkt->Data(), 0, static_cast<std::size_t>(leading));
  return pkt;
}

bool StreamAnnexB::SetMediaInfo(Packet const& packet) {
  if (!packet.IsKey()) return false;
  unsigned char const* const data = packet.Data();
  auto const kinds = ParameterSets();
  std::vector<unsigned char> sets;
  std::vector<std::pair<std::size_t, std::size_t>> found(kinds.size());  // start and length of each
  std::size_t missing = kinds.size();

  // A unit at the end of the packet is never taken: it may be cut off.
  for (NalUnits unit = UnitsOf(packet); unit.More(); unit.Next()) {
    std::size_t const at = unit.Code(), next = unit.End();
    if (next == static_cast<std::size_t>(packet.Size())) break;
    int const kind = unit.Header().ParameterSet();
    if (kind < 0 && missing == 0) break;  // sets after the first of each kind are taken, too
    if (kind < 0) continue;
    auto& place = found[static_cast<std::size_t>(kind)];
    if (place.second == 0) {
      place = {sets.size(), next - at};
      --missing;
    }
    sets.insert(sets.end(), data + at, data + next);
  }
  if (missing > 0) return true;

  _parameterSets.swap(sets);
  if (!_media->Extra(_parameterSets.data(), static_cast<unsigned>(_parameterSets.size()))) {
    KESTRO_ERROR_AT(
        _source, __func__,
        std::string("!_media->Extra(_buf, _") + (kinds.size() == 3 ? "vps" : "") + "spsppslen)");
    return false;
  }
  // Sets the size before the pointer: a thread that reads the pointer then finds its size.
  auto const extra = _media->ExtraData();
  for (std::size_t i = kinds.size(); i-- > 0;) {
    ParameterSet const& keys = kinds.begin()[i];
    if (keys.data == nullptr) continue;
    _media->Set(keys.size, static_cast<int>(found[i].second));
    _media->Set(keys.data, extra->data() + found[i].first);
  }
  _infoLen = static_cast<unsigned>(_parameterSets.size());
  return true;
}

int StreamAnnexB::DemuxOffset(Packet const& packet) {
  for (NalUnits unit = UnitsOf(packet); unit.More(); unit.Next())
    if (unit.Header().EndsBlank()) return static_cast<int>(unit.Code());
  return 0;
}

base::PropertyList StreamAnnexB::Properties() {
  base::PropertyList list;
  list.Member<StreamAnnexB>("frameRate", &StreamAnnexB::_frameRate,
                            "frames per second of the header, set before configuring");
  return list;
}

}  // namespace kestro::plugin::avi
