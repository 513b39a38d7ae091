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
