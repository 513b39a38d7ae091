#include "common/IAviDemux.h"

#include <algorithm>
#include <memory>

#include "base/Console.h"
#include "base/LittleEndian.h"
#include "common/HeaderChunks.h"
#include "common/IndexChunks.h"
#include "common/ReadWatch.h"

namespace kestro::plugin::avi {

using base::Convert4;

bool IAviDemux::Parse(IO& io) {
  if (_root != nullptr) return true;
  int64 const size = io.Size();
  base::IOBlockReader blocks(io, static_cast<int>(std::clamp<int64>(size, 1, 32768)));
  ReadWatch reader(blocks);
  _root = new croot;
  _root->Size(static_cast<unsigned>(std::clamp<int64>(size, 0, UINT32_MAX)));
  bool const parsed = reader.Seek(0, IO::kBegin) && _root->Parse(reader, true) != 0;
  // Nothing after the index is needed.
  auto const* const index = dynamic_cast<cidx1*>(_root->Find("idx1"));
  _incomplete =
      reader.StoppedAt() < (index != nullptr ? index->dataPos + index->Size() : INT64_MAX);
  if (parsed) return true;
  delete _root;
  _root = nullptr;
  return false;
}

bool IAviDemux::Open(IO& io) {
  if (!Parse(io)) {
    KESTRO_ERROR("!Parse(io)");
    return false;
  }
  _duration = _moviOffset = _currentPts = 0;
  AddStreams();
  ParseIdx(io);
  Update(io);
  io.Seek(_moviOffset + 4, IO::kBegin);
  for (IStream* stream : _streams) {
    stream->DemuxReset();
    if (stream->Media() == nullptr) continue;
    stream->SetDurPerFrame();
    stream->SetKeyFrameGap();
  }
  return true;
}

bool IAviDemux::Close(IO&) {
  clearStream();
  return true;
}

// The first stream list. Starting at the first list, the search goes into children where there are
// any.
IList* IAviDemux::FirstStreamList() const {
  IList* node = _root->Find("LIST");
  while (node != nullptr && node->ListType() != Convert4("strl")) {
    IList* const next = node->Child() != nullptr ? node->Child() : node->Next();
    node = next != nullptr ? next->Find("LIST") : nullptr;
  }
  return node;
}

void IAviDemux::AddStreams() {
  bool afterText = false;  // a list of another type after a text track does not end the tracks
  int track = -1;
  for (IList* list = FirstStreamList(); list != nullptr; list = list->Next()) {
    if (list->ListType() != Convert4("strl") && !afterText) return;
    afterText = false;
    track += list->ListType() == Convert4("strl");
    auto* const header =
        list->Child() != nullptr ? dynamic_cast<cstrh*>(list->Find("strh")) : nullptr;
    if (header == nullptr || header->fccHandler == 0) continue;
    char name[5] = {};
    for (int i = 0; i < 4; ++i) name[i] = static_cast<char>(header->fccHandler >> (8 * i));
    std::string codec = name;
    afterText = codec == "txt" || codec == "TXT";
    if (afterText) continue;
    if (codec == "WAVE" || codec == "wave") codec = "PCM";
    IStream* const stream =
        IStream::New(codec.c_str(), codec.c_str(), static_cast<int>(_streams.size()));
    if (stream == nullptr) continue;
    _streams.push_back(stream);
    // A track with broken headers stays, so that the others keep their numbers.
    static_cast<void>(stream->DemuxConfig(list, nullptr));
    if (stream->Media() == nullptr) continue;
    stream->Media()->Set("track", track);
    stream->Media()->Set("id", stream->TrackID());
  }
}

bool IAviDemux::ParseIdx(IO& io) {
  auto* const index = dynamic_cast<cidx1*>(_root->Find("idx1"));
  cmovi const* const movi = Movi();
  if (index != nullptr && io.Seek(index->dataPos, IO::kBegin))
    AddEntries(io, std::min<int64>(index->Size(), io.Size() - index->dataPos),
               movi != nullptr && index->dataPos < movi->dataPos);
  IList* const junk = _root->Find("JUNK");
  if (junk != nullptr) junk->parse(io);
  return junk != nullptr;
}

// Gives the entries of the index to their streams: all of them, or those before the first entry of
// zeros, where the unused rest of a reserve begins. Entries after a sector that a power cut has
// zeroed cannot be timed.
void IAviDemux::AddEntries(IO& io, int64 bytes, bool toZeros) {
  constexpr int64 kEntry = 16;
  constexpr int64 kPiece = 0x100000;
  std::unique_ptr<unsigned char[]> const piece(
      new unsigned char[static_cast<std::size_t>(std::clamp<int64>(bytes, kEntry, kPiece))]);
  for (int64 left = bytes / kEntry * kEntry; left > 0;) {
    auto const wanted = static_cast<unsigned>(std::min(left, kPiece));
    unsigned const read = io.Read(piece.get(), wanted), got = read == IO::kFailed ? 0 : read;
    for (unsigned char const* at = piece.get(); at + kEntry <= piece.get() + got; at += kEntry)
      if (!AddEntry(at) && toZeros) return;
    if (got < wanted) {
      _incomplete = true;
      return;
    }
    // Tracks continue much as they begin. Reserving room for the rest saves copies and memory.
    if (left == bytes / kEntry * kEntry && left > wanted)
      for (IStream* stream : _streams) stream->ExpectMore(static_cast<double>(left) / wanted);
    left -= wanted;
  }
}

// False for an entry of zeros.
bool IAviDemux::AddEntry(unsigned char const* at) {
  auto const digit = [](unsigned char c) { return c >= '0' && c <= '9'; };
  unsigned const flags = base::Load32(at + 4);
  ChunkParam chunk;
  chunk.id = base::Load32(at);
  chunk.flags = flags != 0 ? 1 : 0;
  chunk.offset = base::Load32(at + 8);
  chunk.size = base::Load32(at + 12);
  if (chunk.offset == 0 && chunk.size == 0) return chunk.id != 0 || flags != 0;
  if (!digit(at[0]) || !digit(at[1])) return true;
  auto const track = static_cast<std::size_t>((at[0] - '0') * 10 + at[1] - '0');
  if (track < _streams.size()) _streams[track]->AddListChunk(chunk);
  return true;
}

bool IAviDemux::Update(IO&) {
  if (IStream* video = VideoStream(0)) _duration = video->Duration();
  cmovi const* const movi = Movi();
  if (movi != nullptr) _moviOffset = movi->dataPos;
  return movi != nullptr;
}

cmovi const* IAviDemux::Movi() const {
  for (IList* list = _root->Find("LIST"); list != nullptr; list = list->Next())
    if (auto const* movi = dynamic_cast<cmovi*>(list)) return movi;
  return nullptr;
}

bool IAviDemux::RestStream() {
  for (IStream* stream : _streams) stream->DemuxReset();
  return true;
}

IStream* IAviDemux::VideoStream(unsigned index) const {
  for (IStream* stream : _streams)
    if (stream->IsVideo() && index-- == 0) return stream;
  return nullptr;
}

}  // namespace kestro::plugin::avi
