#include "verbs/HashFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "avi/Hashes.h"
#include "cli/Errors.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static constexpr char kDiffers[] = "differs";

HashFile HashFile::Of(std::string const& path, std::function<bool(std::uint64_t)> const& advance) {
  HashFile file;
  file._name = fs::path(path).filename();
  avi::AviFile avi(path);
  auto const add = [&file](avi::PacketHash const& packet) {
    file._packets.push_back({std::to_string(packet.track) + " " + std::to_string(packet.number),
                             packet.hash, packet.size});
  };
  file._hash = avi::HashPackets(avi, add, advance);
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

static std::vector<std::string> Lines(HashFile::DifferenceList const& differences) {
  std::vector<std::string> lines;
  for (HashFile::Difference const& one : differences.first)
    lines.push_back("track " + std::to_string(one.track) + ", packet " +
                    std::to_string(one.number) + ": " + (one.change == kDiffers ? "" : "is ") +
                    one.change);
  if (std::uint64_t const more = differences.count - lines.size(); more != 0)
    lines.push_back("and " + std::to_string(more) + " more packets");
  if (lines.empty()) lines.push_back("all packets are the same, but not the rest of the file");
  return lines;
}

HashFile::DifferenceList HashFile::Differences(HashFile const& other) const {
  constexpr std::size_t kMost = 20;
  DifferenceList differences;
  if (_hash == other._hash) return differences;
  std::map<std::string, Packet const*> known;
  for (Packet const& packet : other._packets) known.emplace(packet.id, &packet);
  auto const add = [&](std::string const& id, char const* change) {
    if (++differences.count > kMost) return;
    Difference& one = differences.first.emplace_back(Difference{0, 0, change});
    std::istringstream(id) >> one.track >> one.number;
  };
  for (Packet const& packet : _packets) {
    auto const found = known.find(packet.id);
    if (found == known.end())
      add(packet.id, "missing");
    else if (found->second->hash != packet.hash)
      add(packet.id, kDiffers);
    if (found != known.end()) known.erase(found);
  }
  for (Packet const& packet : other._packets)
    if (known.count(packet.id) != 0) add(packet.id, "new");
  differences.lines = Lines(differences);
  return differences;
}

}  // namespace kestro::tool
