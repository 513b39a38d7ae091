#include "repair/Image.h"

#include <algorithm>

#include "Errors.h"
#include "repair/Salvage.h"

namespace kestro::tool {

Image::Image(std::string const& path) : _avi(path), _head(ReadHead(_avi, path)) {
  RiffReader& reader = _avi.Reader();
  bool const there = reader.Header(_head.data, reader.Size(), _index);
  if (!there && reader.Size() <= _head.data) return;
  if (!there || _index.id != base::Convert4("idx1"))
    throw Error(kUnusable,
                path + ": not a side file: no index at offset " + std::to_string(_head.data));
}

void Image::ForEachEntry(EntrySink const& sink) { ReadEntries(_avi.Reader(), _index, 0, sink); }

std::string Image::Mismatch(RiffReader& file, Head const* head) {
  auto const same = [](AviTrack const& a, AviTrack const& b) {
    return a.type == b.type && a.codec == b.codec && a.width == b.width && a.height == b.height &&
           a.rate == b.rate && a.scale == b.scale && a.sampleRate == b.sampleRate &&
           a.channels == b.channels && a.bits == b.bits;
  };
  if (head != nullptr &&
      (head->data != _head.data || !std::equal(head->tracks.begin(), head->tracks.end(),
                                               _head.tracks.begin(), _head.tracks.end(), same)))
    return "its headers are those of another recording";
  base::uint64 entries = 0, leading = 0;
  ForEachEntry([&](IndexEntry const& entry) {
    Chunk chunk;
    if (entry.offset + 8 + int64{entry.size} > file.Size()) return;  // the file was cut
    ++entries;
    leading += Salvage::Leads(file, _head.tracks, entry, chunk);
  });
  // Some may be damaged; sizes of another recording's packets agree by chance only.
  if (leading * 2 > entries || (entries == 0 && head != nullptr)) return "";
  return "only " + std::to_string(leading) + " of its " + std::to_string(entries) +
         " index entries lead to packets";
}

}  // namespace kestro::tool
