#include "repair/Image.h"

#include <filesystem>

#include "avi/SlotFile.h"
#include "base/File.h"
#include "cli/Errors.h"
#include "repair/Salvage.h"

namespace kestro::tool {

namespace fs = std::filesystem;

// Returns false when the file has no slots.
static bool ReadSlots(std::string const& path, avi::SlotFile::Image& image) {
  std::error_code none;
  if (!fs::is_regular_file(path, none)) return false;  // opening a pipe would wait
  base::FileIO file(fs::absolute(path).c_str(), "rb");
  return avi::SlotFile::Read(file, image);
}

static avi::AviFile OpenImage(std::string const& path) {
  avi::SlotFile::Image image;
  if (!ReadSlots(path, image)) return avi::AviFile(path);
  if (image.generation == 0) throw Error(kUnusable, path + ": both of its slots are damaged");
  auto const size = static_cast<unsigned>(image.bytes.size());
  auto memory = std::make_unique<base::IOBuffer>(static_cast<int>(size), false);
  if (memory->Write(image.bytes.data(), size) != size)
    throw Error(kIo, path + ": not enough memory");
  return avi::AviFile(std::move(memory), path);
}

std::string Image::Find(std::string const& recording) {
  std::string found;
  unsigned newest = 0;
  for (std::string const& path : avi::SlotFile::Names(recording + avi::SlotFile::kEnding)) {
    std::error_code none;
    if (!fs::exists(path, none)) continue;
    avi::SlotFile::Image image;
    ReadSlots(path, image);
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
