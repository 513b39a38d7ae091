#include "repair/NewData.h"

#include "cli/Errors.h"
#include "cli/Interrupt.h"

namespace kestro::tool {

using base::Convert4;

static constexpr int64 kLargest = 6 << 20;  // bytes of a packet: it is read into memory
static constexpr std::size_t kMostHoles = 4096;

namespace {

class Finder {
 public:
  Finder(avi::RiffReader& file, Layout const& layout, NewData& found)
      : _file(file), _layout(layout), _found(found) {}

  void Keep(Salvage::Packet const& packet) {
    EndHole(packet.chunk.offset);
    _found.sums[packet.track].Add(_layout.tracks[packet.track],
                                  static_cast<unsigned>(packet.data.size()));
    _found.keys.push_back(packet.key);
    _found.end = _file.Next(packet.chunk);
  }
  // A packet that is too large to be read was taken for damage.
  void CheckSize(int64 at) {
    avi::Chunk chunk;
    if (_file.Header(at, _file.Size(), chunk) && !chunk.Cut() && chunk.size > kLargest &&
        Salvage::IsTrackData(_layout.tracks, chunk.id))
      throw Error(kUnusable, "a packet of " + std::to_string(chunk.size) + " bytes at offset " +
                                 std::to_string(at) + " is too large to be mended in place");
  }

 private:
  // Whatever lies between the last packet and this offset belongs to no packet.
  void EndHole(int64 end) {
    int64 const at = _found.end;
    if (at == end || IsJunk(at, end)) return;
    CheckSize(at);
    if (end - at < 8 || at % 2 != 0 || end % 2 != 0 || _found.holes.size() == kMostHoles)
      throw Error(kUnusable, "the data at offset " + std::to_string(at) + " is damaged");
    _found.holes.push_back({at, end - at});
  }
  bool IsJunk(int64 at, int64 end) {
    avi::Chunk chunk;
    while (at < end && _file.Header(at, end, chunk) && chunk.id == Convert4("JUNK") && !chunk.Cut())
      at = _file.Next(chunk);
    return at == end;
  }

  avi::RiffReader& _file;
  Layout const& _layout;
  NewData& _found;
};

}  // namespace

NewData FindNewData(avi::RiffReader& file, Layout const& layout, int64 begin,
                    std::function<void(int64)> const& advance) {
  NewData found;
  found.begin = found.end = begin;
  found.sums.resize(layout.tracks.size());
  Finder finder(file, layout, found);
  Salvage salvage(file, begin, layout.tracks, [&](Salvage::Packet const& packet) {
    finder.Keep(packet);
    advance(found.end);
    found.interrupted = Interrupted();
    return !found.interrupted;
  });
  salvage.Limit(kLargest);
  salvage.Finish();
  finder.CheckSize(found.end);
  found.counts = salvage.Counts();
  return found;
}

bool NewData::ForEachEntry(avi::RiffReader& file, Layout const& layout,
                           avi::EntrySink const& sink) const {
  std::size_t number = 0;
  int64 const stopped = file.ScanData(begin, end, [&](avi::Chunk const& chunk) {
    bool const video = (chunk.id >> 16 & 0xFF) == 'd', key = number < keys.size() && keys[number];
    ++number;
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
    if (track >= layout.tracks.size()) return;
    // As the plug-in counts sizes, see avi::SizeAgrees.
    std::string const& codec = layout.tracks[track].codec;
    int64 const pad = codec == "mjpeg" || codec == "text" ? chunk.size % 2 : 0;
    int64 const size = chunk.size + pad + (codec == "mjpeg" ? 8 : 0);
    if (chunk.size != 0)
      sink({chunk.id, video && key ? avi::IndexEntry::kKey : 0, chunk.offset,
            static_cast<unsigned>(size)});
  });
  return stopped >= end && number == keys.size();
}

}  // namespace kestro::tool
