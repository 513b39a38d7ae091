#include "verbs/HashFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include "avi/Hashes.h"
#include "cli/Errors.h"

namespace kestro::tool {

static constexpr char kDiffers[] = "differs";

HashFile HashFile::Of(std::string const& path, avi::HashProgress const& advance) {
  HashFile file;
  avi::AviFile avi(path);
  auto const add = [&file](avi::PacketHash const& packet) { file._packets.push_back(packet); };
  file._hash = avi::HashPackets(avi, add, advance);
  return file;
}

HashFile HashFile::Read(std::string const& path) {
  std::ifstream text(path);
  if (!text) throw Error(kIo, path + ": " + std::strerror(errno));
  HashFile file;
  std::string line;
  for (unsigned number = 1; std::getline(text, line); ++number) {
    if (line.rfind('\\', 0) == 0) line.erase(0, 1);  // the name is escaped
    std::istringstream fields(line);
    std::string mark;
    avi::PacketHash packet = {};
    constexpr std::size_t kDigits = 64;
    if (line.rfind("# ", 0) == 0 &&
        fields >> mark >> packet.track >> packet.number >> packet.size >> packet.hash &&
        packet.hash.size() == kDigits) {
      file._packets.push_back(packet);
    } else if (line.size() > kDigits + 2 && line[0] != '#' && line[kDigits] == ' ') {
      file._hash = line.substr(0, kDigits);
    } else if (line.rfind('#', 0) != 0) {
      throw Error(kUnusable, path + ", line " + std::to_string(number) + ": not a SHA-256");
    }
  }
  if (file._hash.empty()) throw Error(kUnusable, path + ": has no hash of the file");
  return file;
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
  using Key = std::pair<std::size_t, std::uint64_t>;
  std::map<Key, avi::PacketHash const*> known;
  for (auto const& packet : other._packets)
    known.emplace(Key(packet.track, packet.number), &packet);
  auto const add = [&](avi::PacketHash const& packet, char const* change) {
    if (++differences.count <= kMost)
      differences.first.push_back({packet.track, packet.number, change});
  };
  for (auto const& packet : _packets) {
    auto const found = known.find({packet.track, packet.number});
    if (found == known.end())
      add(packet, "missing");
    else if (found->second->hash != packet.hash)
      add(packet, kDiffers);
    if (found != known.end()) known.erase(found);
  }
  for (auto const& packet : other._packets)
    if (known.count({packet.track, packet.number}) != 0) add(packet, "new");
  differences.lines = Lines(differences);
  return differences;
}

}  // namespace kestro::tool
