#include "avi/TrackReader.h"

#include <algorithm>

#include "avi/Error.h"

namespace kestro::avi {

static constexpr unsigned kMaxFrame = 256 << 20;  // nothing larger is a frame
static constexpr unsigned kSoundPiece = 1 << 16;
static constexpr std::size_t kMaxFaults = 10;

void TrackReader::ForEach(Sink const& sink) {
  _position.assign(_avi.Tracks().size(), 0);
  _faults.clear();
  _faultCount = 0;
  bool more = true;
  auto const take = [&](IndexEntry const& entry) { more = more && Take(entry, sink); };
  if (_avi.Indexed())
    _avi.ForEachEntry(take);
  else
    _avi.ForEachChunk(take);
}

bool TrackReader::Take(IndexEntry const& listed, Sink const& sink) {
  auto const track = static_cast<std::size_t>(TrackOfCode(listed.id));
  if (track >= _position.size()) return true;
  AviTrack const& info = _avi.Tracks()[track];
  bool const whole = info.type != "audio";
  bool more = true;
  if (track < _wanted.size() && _wanted[track]) {
    IndexEntry entry = listed;
    entry.size = _avi.DataSize(listed);
    more = !Whole(entry, whole) || Pieces(entry, track, sink);
  }
  // Tracks that nobody wants may be clocks.
  _position[track] += whole ? 1 : listed.size / std::max(1u, info.channels * info.bits / 8);
  return more;
}

bool TrackReader::Whole(IndexEntry const& entry, bool whole) {
  Chunk chunk;
  std::string const said = CodeText(entry.id) + " of " + std::to_string(entry.size) + " bytes";
  if (!_avi.Reader().Header(entry.offset, _avi.Size(), chunk) || chunk.id != entry.id)
    Fault(entry, "no chunk " + said);
  else if (chunk.size != entry.size)
    Fault(entry, "a chunk of " + std::to_string(chunk.size) + " bytes, not " + said);
  else if (chunk.Cut())
    Fault(entry, "the chunk " + said + " goes beyond the end of the file");
  else if (whole && entry.size > kMaxFrame)
    Fault(entry, said + " are too much for one frame or text");
  else
    return true;
  return false;
}

void TrackReader::Fault(IndexEntry const& entry, std::string const& what) {
  if (++_faultCount <= kMaxFaults)
    _faults.push_back("offset " + std::to_string(entry.offset) + ": " + what + "; left out");
}

std::vector<std::string> TrackReader::Faults() const {
  auto faults = _faults;
  if (_faultCount > kMaxFaults)
    faults.push_back("and " + std::to_string(_faultCount - kMaxFaults) + " more of the kind");
  return faults;
}

bool TrackReader::Pieces(IndexEntry const& entry, std::size_t track, Sink const& sink) {
  AviTrack const& info = _avi.Tracks()[track];
  unsigned const frame = std::max(1u, info.channels * info.bits / 8);
  bool const whole = info.type != "audio";
  std::uint64_t const position = _position[_avi.ClockOf(track)];
  unsigned const most = whole ? entry.size : std::max(1u, kSoundPiece / frame) * frame;
  if (_buffer.size() < std::min(most, entry.size)) _buffer.resize(std::min(most, entry.size));
  unsigned done = 0;
  do {
    unsigned const size = std::min(most, entry.size - done);
    int64 const at = entry.offset + 8 + done;
    if (_avi.Reader().Read(at, _buffer.data(), size) != size)
      throw Error(kIo, "the AVI file cannot be read at offset " + std::to_string(at));
    if (!sink(track, {_buffer.data(), size, position + (whole ? 0 : done / frame)})) return false;
    done += size;
  } while (done < entry.size);
  return true;
}

}  // namespace kestro::avi
