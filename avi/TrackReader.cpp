#include "avi/TrackReader.h"

#include <algorithm>

#include "avi/Error.h"

namespace kestro::avi {

static constexpr unsigned kMaxFrame = 256 << 20;
static constexpr unsigned kAudioPiece = 1 << 16;
static constexpr std::size_t kMaxFaults = 10;

void TrackReader::ForEach(Sink const& sink) {
  _position.assign(_avi.Tracks().size(), 0);
  _faults.clear();
  _faultCount = 0;
  bool more = true;
  auto const read = [&](IndexEntry const& entry) { more = more && ReadChunk(entry, sink); };
  _avi.ForEachPacket(read);
}

bool TrackReader::ReadChunk(IndexEntry const& listed, Sink const& sink) {
  auto const track = static_cast<std::size_t>(TrackOfCode(listed.id));
  if (track >= _position.size()) return true;
  AviTrack const& info = _avi.Tracks()[track];
  bool const whole = info.type != "audio";
  std::uint64_t const count = whole ? 1 : AudioSize(listed) / info.FrameBytes();
  bool const wanted =
      track < _selected.size() && _selected[track] &&
      (_range == nullptr || _range->Has(track, _position[_avi.ClockOf(track)], count));
  bool more = true;
  if (wanted) {
    IndexEntry entry = listed;
    entry.size = _avi.DataSize(listed);
    more = !CheckChunk(entry, whole) || ReadPieces(entry, track, sink);
  }
  // Also for other tracks: they may give a selected one its times.
  _position[track] += count;
  return more;
}

// How many bytes of audio an entry stands for. A damaged entry must not move all that follows by
// hours: if it does not fit into the file, the chunk's own header counts.
unsigned TrackReader::AudioSize(IndexEntry const& entry) {
  auto const fits = [&](int64 size) { return entry.offset + 8 + size <= _avi.Size(); };
  if (fits(entry.size)) return entry.size;
  Chunk chunk;
  bool const known = _avi.Reader().Header(entry.offset, _avi.Size(), chunk) &&
                     chunk.id == entry.id && fits(chunk.size);
  return known ? static_cast<unsigned>(chunk.size) : 0;
}

bool TrackReader::CheckChunk(IndexEntry const& entry, bool whole) {
  Chunk chunk;
  std::string const expected = CodeText(entry.id) + " of " + std::to_string(entry.size) + " bytes";
  if (!_avi.Reader().Header(entry.offset, _avi.Size(), chunk) || chunk.id != entry.id)
    AddFault(entry, "no chunk " + expected);
  else if (chunk.size != entry.size)
    AddFault(entry, "a chunk of " + std::to_string(chunk.size) + " bytes, not " + expected);
  else if (chunk.Cut())
    AddFault(entry, "the chunk " + expected + " extends beyond the end of the file");
  else if (whole && entry.size > kMaxFrame)
    AddFault(entry, expected + " is too large for one frame or text");
  else
    return true;
  return false;
}

void TrackReader::AddFault(IndexEntry const& entry, std::string const& what) {
  if (++_faultCount <= kMaxFaults)
    _faults.push_back("offset " + std::to_string(entry.offset) + ": " + what + "; skipped");
}

std::vector<std::string> TrackReader::Faults() const {
  auto faults = _faults;
  if (_faultCount > kMaxFaults)
    faults.push_back("and " + std::to_string(_faultCount - kMaxFaults) + " more faults");
  return faults;
}

bool TrackReader::ReadPieces(IndexEntry const& entry, std::size_t track, Sink const& sink) {
  AviTrack const& info = _avi.Tracks()[track];
  unsigned const frame = info.FrameBytes();
  bool const whole = info.type != "audio";
  std::uint64_t const position = _position[_avi.ClockOf(track)];
  unsigned const most = whole ? entry.size : std::max(1u, kAudioPiece / frame) * frame;
  if (_buffer.size() < std::min(most, entry.size)) _buffer.resize(std::min(most, entry.size));
  unsigned done = 0;
  do {
    unsigned const size = std::min(most, entry.size - done);
    int64 const at = entry.offset + 8 + done;
    if (_avi.Reader().Read(at, _buffer.data(), size) != size)
      throw Error(kIo, "the AVI file cannot be read at offset " + std::to_string(at));
    bool const key = (entry.flags & IndexEntry::kKey) != 0;
    Piece piece{_buffer.data(), size, position + (whole ? 0 : done / frame), key, entry.offset};
    if (_range != nullptr) _range->Cut(track, piece);
    bool const left = _range == nullptr || piece.size != 0;
    if (left && !sink(track, piece)) return false;
    done += size;
  } while (done < entry.size);
  return true;
}

}  // namespace kestro::avi
