#include "verbs/HashFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "avi/TrackReader.h"
#include "cli/Errors.h"
#include "media/MediaModule.h"

namespace kestro::tool {

namespace fs = std::filesystem;

HashFile HashFile::Of(std::string const& path, std::function<bool(std::uint64_t)> const& advance) {
  using base::int64;
  HashFile file;
  file._name = fs::path(path).filename();
  auto const hash = LoadMedia().NewHash();
  avi::AviFile avi(path);
  std::vector<std::uint8_t> buffer(1 << 20);
  bool more = true;
  // Hashes a part of the file, as far as it exists. `done`: how much was read before.
  auto const add = [&](int64 begin, int64 end, int64 done) {
    for (int64 at = begin, last = std::min(end, avi.Size()); at < last && more;) {
      auto const size = std::min(last - at, static_cast<int64>(buffer.size()));
      unsigned const got = avi.Reader().Read(at, buffer.data(), static_cast<unsigned>(size));
      if (got == 0) throw Error(kIo, path + ": cannot be read");
      hash->Add(buffer.data(), got);
      at += got;
      more = advance(static_cast<std::uint64_t>(done + at));
    }
  };
  std::vector<std::uint64_t> numbers(avi.Tracks().size());
  avi.ForEachPacket([&](avi::IndexEntry const& entry) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (track >= numbers.size() || !more) return;
    std::uint64_t const size = avi.DataSize(entry);
    add(entry.offset + 8, entry.offset + 8 + static_cast<int64>(size), 0);
    file._packets.push_back(
        {std::to_string(track) + " " + std::to_string(numbers[track]++), hash->Text(), size});
  });
  add(0, avi.Size(), avi.Size());
  file._hash = hash->Text();
  return file;
}

HashFile HashFile::Read(std::string const& path) {
  std::ifstream text(path);
  if (!text) throw Error(kIo, path + ": " + std::strerror(errno));
  HashFile file;
  std::string line;
  for (unsigned number = 1; std::getline(text, line); ++number) {
    std::istringstream fields(line);
    std::string mark, track, index, hash;
    std::uint64_t size = 0;
    constexpr std::size_t kDigits = 64;
    if (line.rfind("# ", 0) == 0 && fields >> mark >> track >> index >> size >> hash &&
        hash.size() == kDigits) {
      file._packets.push_back({track + " " + index, hash, size});
    } else if (line.size() > kDigits + 2 && line[0] != '#' && line[kDigits] == ' ') {
      file._hash = line.substr(0, kDigits);
      file._name = line.substr(kDigits + 2);
    } else if (line.rfind('#', 0) != 0) {
      throw Error(kUnusable, path + ", line " + std::to_string(number) + ": not a SHA-256");
    }
  }
  if (file._hash.empty()) throw Error(kUnusable, path + ": has no hash of the file");
  return file;
}

std::string HashFile::Text() const {
  std::string text = "# Packets: track, number, size, SHA-256\n";
  for (Packet const& packet : _packets)
    text += "# " + packet.id + " " + std::to_string(packet.size) + " " + packet.hash + "\n";
  return text + _hash + "  " + _name + "\n";
}

std::vector<std::string> HashFile::Differences(HashFile const& other) const {
  constexpr std::size_t kMost = 20;
  if (_hash == other._hash) return {};
  std::map<std::string, Packet const*> known;
  for (Packet const& packet : other._packets) known.emplace(packet.id, &packet);
  std::vector<std::string> differences;
  std::uint64_t more = 0;
  auto const add = [&](std::string const& id, std::string const& what) {
    std::size_t const space = id.find(' ');
    if (differences.size() < kMost)
      differences.push_back("track " + id.substr(0, space) + ", packet " + id.substr(space + 1) +
                            ": " + what);
    else
      ++more;
  };
  for (Packet const& packet : _packets) {
    auto const found = known.find(packet.id);
    if (found == known.end())
      add(packet.id, "is missing");
    else if (found->second->hash != packet.hash)
      add(packet.id, "differs");
    if (found != known.end()) known.erase(found);
  }
  for (Packet const& packet : other._packets)
    if (known.count(packet.id) != 0) add(packet.id, "is new");
  if (more != 0) differences.push_back("and " + std::to_string(more) + " more packets");
  if (differences.empty())
    differences.push_back("all packets are the same, but not the rest of the file");
  return differences;
}

}  // namespace kestro::tool
