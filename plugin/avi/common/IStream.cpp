#include "common/IStream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/LittleEndian.h"

namespace kestro::plugin::avi {

using base::uint64;

namespace {
constexpr int kMaxTracks = 100;  // a chunk's id has two digits for the track
constexpr int64 kMaxBatch = 65536;
}  // namespace

IStream* IStream::New(char const* codec, char const* name, int trackId) {
  if (codec == nullptr || *codec == '\0' || std::strchr(codec, '-') != nullptr) return nullptr;
  if (trackId < 0 || trackId >= kMaxTracks) return nullptr;
  std::string const alias = std::string("avi-stream-") + codec;
  base::AttrSet attrs;
  Object::AttrSetInit(attrs, nullptr, alias.c_str(), name, nullptr, nullptr);
  auto* stream = base::IClass::New<IStream>(attrs);
  if (stream == nullptr) return nullptr;
  if (!stream->Configure(attrs)) {
    delete stream;
    return nullptr;
  }
  stream->TrackID(trackId);
  return stream;
}

IStream::~IStream() {
  delete _listFile;
  if (!_owner) return;
  if (_media != nullptr) _media->Release();
  delete _list;
}

bool IStream::MuxConfig(std::vector<ChunkParam>* list, IMedia* media, Object* vidtag,
                        MuxerParam* para) {
  _media = media;
  _para = para;
  if (media == nullptr || para == nullptr || !muxConfig(vidtag)) {
    base::ErrorLineAt("plugin/avi/common/IStream", 87, "MuxConfig", "!muxConfig(vidtag)");
    return false;
  }
  _list = list;
  if (para->idx1WithTmpFile >= 0) {
    std::string base;
    if (para->diskName != 0) base += para->diskName;
    char text[64];
    std::snprintf(text, sizeof text, ":/%s.%p", Name(), static_cast<void*>(this));
    _listFile = new IListFile(list, (base + text).c_str(), 4096);
  }
  return true;
}

void IStream::MuxReset() {
  _clock = -1;
  _duration = 0;
  muxReset();
}

void IStream::MuxFlags(bool first, bool second, bool noSpill) {
  _muxFlags[0] = first;
  _muxFlags[1] = second;
  _muxFlags[2] = noSpill;
}

bool IStream::MuxUpdate() {
  if (_listFile != nullptr && !_listFile->ReadTmpFile() && _listFile->Lost())
    _para->indexLost = true;
  UpdateLength();
  return muxUpdate();
}

void IStream::EndSpill() {
  delete _listFile;
  _listFile = nullptr;
}

void IStream::UpdateLength() {
  if (cstrh* header = Header()) header->dwLength = Length();
}

bool IStream::AddPacket(Packet& packet, IO& io, uint64 arg) {
  if (packet.Media() != _media) return false;
  if (!_muxFlags[2] && _listFile != nullptr && _listFile->ListIsFull() &&
      !_listFile->WriteTmpFile())
    _para->spillFault = true;
  if (_clock < 0) _clock = packet.Duration() / 1000000 * _rateMul / 1000;
  packet.Offset(packet.Offset() + MuxOffset(packet));
  AddData(io, packet, arg);
  return true;
}

bool IStream::UpdateChunkList(int64 delta) {
  for (auto& chunk : *_list)
    if (chunk.offset != 0) chunk.offset += static_cast<uint64>(delta);
  return true;
}

bool IStream::UpdateVfiChunkList(int64 delta) {
  for (std::size_t i = 1; i < _list->size(); ++i)
    if ((*_list)[i].offset < (*_list)[i - 1].offset)
      (*_list)[i].offset += static_cast<uint64>(delta);
  return true;
}

unsigned IStream::ChunkId() const {
  char const* suffix = ChunkSuffix();
  char const id[] = {static_cast<char>('0' + _trackId / 10 % 10),
                     static_cast<char>('0' + _trackId % 10), suffix[0], suffix[1], '\0'};
  return base::Convert4(id);
}

int IStream::AddChunk(Packet const& packet, uint64 pos, int) {
  if (packet.Size() <= 0) return 0;
  ChunkParam chunk;
  chunk.id = ChunkId();
  chunk.flags = KeyFlags() && packet.IsKey() ? 0x10 : 0;
  chunk.offset = pos;
  chunk.size = static_cast<unsigned>(packet.Size());
  int64 const ms = packet.Duration() / 1000000;
  // Kept only for DropChunk.
  chunk.duration = static_cast<unsigned>(std::clamp<int64>(ms * 1000, 0, UINT32_MAX));
  _duration += ms;
  _list->push_back(chunk);
  ++_entryCount;
  ++_para->entries;
  return packet.Size();
}

int IStream::AddData(IO& io, Packet& packet, uint64) {
  AddChunk(packet, static_cast<uint64>(io.Tell()), 0);
  return static_cast<int>(io.Write(packet.Data(), static_cast<unsigned>(packet.Size())));
}

unsigned IStream::WriteChunk(IO& io, unsigned sizeField, Packet const& packet) const {
  // Not taken from the index entry: an empty packet has none.
  unsigned char header[8];
  base::Store32(base::Store32(header, ChunkId()), sizeField);
  unsigned written = io.Write(header, sizeof header);
  written += io.Write(packet.Data(), static_cast<unsigned>(packet.Size()));
  if (written % 2 != 0) io.Write("", 1);
  return written;
}

uint64 IStream::ChunkEnd(ChunkParam const& chunk) const { return chunk.offset + chunk.size; }

void IStream::DropChunk(ChunkParam const& chunk) {
  _duration -= chunk.duration / 1000;
  --_entryCount;
  --_para->entries;
}

cstrh* IStream::Header() const {
  return _strl != nullptr ? dynamic_cast<cstrh*>(_strl->Find("strh")) : nullptr;
}

unsigned IStream::Batch(int64 unitsPerSecond, int seconds, int unitsPerEntry) {
  int64 const units = std::clamp<int64>(unitsPerSecond, 0, INT32_MAX) * seconds;
  return static_cast<unsigned>(std::clamp<int64>(units / unitsPerEntry, 0, kMaxBatch));
}

}  // namespace kestro::plugin::avi
