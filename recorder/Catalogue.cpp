#include "recorder/Catalogue.h"

#include <algorithm>

#include "avi/Hashes.h"
#include "avi/SlotFile.h"

namespace kestro::record {

static constexpr std::int64_t k2020_ns = std::int64_t{1577836800} * 1000000000;

std::uint64_t OwnFile::Bytes() const {
  std::uint64_t bytes = 0;
  for (Storage::Entry const& part : parts) bytes += part.bytes;
  return bytes;
}

std::optional<Catalogue::Meaning> Catalogue::Recognise(avi::NamePattern const& pattern,
                                                       std::string const& name) {
  static std::string const sync = avi::SlotFile::kEnding;
  static std::string const endings[] = {"", sync, sync + "2", avi::HashFileFor(""), kMarker};
  for (std::string const& ending : endings) {
    if (name.size() <= ending.size()) continue;
    std::string own = name.substr(0, name.size() - ending.size());
    if (name.compare(own.size(), ending.size(), ending) != 0) continue;
    if (auto const number = pattern.Match(own)) return Meaning{*number, std::move(own), ending};
  }
  return std::nullopt;
}

std::vector<OwnFile> Catalogue::Read(avi::NamePattern const& pattern,
                                     std::vector<Storage::Entry> const& entries) {
  std::map<std::pair<std::uint64_t, std::string>, OwnFile> files;
  for (Storage::Entry const& entry : entries) {
    auto const meaning = Recognise(pattern, entry.name);
    if (!meaning) continue;
    OwnFile& file = files[{meaning->number, meaning->name}];
    file.number = meaning->number;
    file.name = meaning->name;
    if (meaning->ending == kMarker) {
      file.kept = true;
    } else if (meaning->ending.empty()) {
      file.foreign = !entry.plain;
      file.present = entry.plain;
      file.modified_ns = entry.modified_ns;
      if (entry.plain) file.parts.insert(file.parts.begin(), entry);
    } else if (entry.plain) {
      file.parts.push_back(entry);
    }
  }
  std::vector<OwnFile> list;
  for (auto& [key, file] : files)
    if (!file.parts.empty() && !file.foreign) list.push_back(std::move(file));
  return list;
}

std::vector<std::int64_t> Ages_ns(std::vector<OwnFile> const& files, AgeClocks const& clocks) {
  std::vector<std::int64_t> ages(files.size(), -1);
  std::int64_t own_ns = -1, older_ns = clocks.now_ns - clocks.start_ns;
  for (std::size_t i = files.size(); i-- > 0;) {
    auto const ended = clocks.ended.find(files[i].name);
    if (ended != clocks.ended.end()) {
      own_ns = std::max(own_ns, clocks.now_ns - ended->second);
      ages[i] = own_ns;
      continue;
    }
    std::int64_t const modified_ns = files[i].modified_ns;
    if (modified_ns >= k2020_ns && clocks.wall_ns >= k2020_ns)
      older_ns = std::max(older_ns, clocks.wall_ns - modified_ns);
    ages[i] = older_ns;
  }
  return ages;
}

}  // namespace kestro::record
