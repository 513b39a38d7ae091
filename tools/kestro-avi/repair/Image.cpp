#include "repair/Image.h"

#include <filesystem>

#include "avi/SlotFile.h"
#include "base/File.h"
#include "cli/Errors.h"
#include "repair/Salvage.h"
#include "repair/Window.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static std::unique_ptr<base::IO> OpenFile(std::string const& path) {
  std::error_code none;
  if (!fs::is_regular_file(path, none)) return nullptr;  // opening a pipe would wait
  return std::make_unique<base::FileIO>(fs::absolute(path).c_str(), "rb");
}

static avi::AviFile OpenImage(std::string const& path) {
  avi::SlotFile::Place place;
  auto file = OpenFile(path);
  if (file == nullptr || !avi::SlotFile::Find(*file, place)) return avi::AviFile(path);
  if (place.generation == 0) throw Error(kUnusable, path + ": both of its slots are damaged");
  return avi::AviFile(std::make_unique<Window>(std::move(file), place.at, place.size), path);
}

std::string Image::Find(std::string const& recording) {
  std::string found;
  unsigned newest = 0;
  for (std::string const& path : avi::SlotFile::Names(recording + avi::SlotFile::kEnding)) {
    std::error_code none;
    if (!fs::exists(path, none)) continue;
    avi::SlotFile::Place image;
    if (auto const file = OpenFile(path)) avi::SlotFile::Find(*file, image);
    if (!found.empty() && image.generation <= newest) continue;
    found = path;
    newest = image.generation;
  }
  return found;
}

Image::Image(std::string const& path) : _avi(OpenImage(path)), _head(ReadHead(_avi, path)) {
  avi::RiffReader& reader = _avi.Reader();
  bool const there = reader.Header(_head.data, reader.Size(), _index);
  if (!there && reader.Size() <= _head.data) return;
  if (!there || _index.id != base::Convert4("idx1"))
    throw Error(kUnusable,
                path + ": not a side file: no index at offset " + std::to_string(_head.data));
}

std::vector<unsigned char> Image::Bytes() {
  std::vector<unsigned char> bytes(static_cast<std::size_t>(_avi.Size()));
  auto const size = static_cast<unsigned>(bytes.size());
  if (_avi.Reader().Read(0, bytes.data(), size) != size) throw Error(kIo, "the image is cut off");
  return bytes;
}

void Image::ForEachEntry(avi::EntrySink const& sink) {
  avi::ReadEntries(_avi.Reader(), _index, 0, sink);
}

std::string Image::Mismatch(avi::RiffReader& file, Head const* head) {
  if (head != nullptr && !SameTracks(*head, _head))
    return "its headers belong to another recording";
  base::uint64 entries = 0, valid = 0;
  ForEachEntry([&](avi::IndexEntry const& entry) {
    avi::Chunk chunk;
    if (entry.offset + 8 + int64{entry.size} > file.Size()) return;  // the file was cut
    ++entries;
    valid += Salvage::PointsToChunk(file, _head.tracks, entry, chunk);
  });
  // Some may be damaged; those of another recording match only by chance.
  if (valid * 2 > entries || (entries == 0 && head != nullptr)) return "";
  return "only " + std::to_string(valid) + " of its " + std::to_string(entries) +
         " index entries point to packets";
}

}  // namespace kestro::tool
