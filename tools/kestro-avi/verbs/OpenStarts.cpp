#include "verbs/OpenStarts.h"

#include <algorithm>

#include "cli/Text.h"

namespace kestro::tool {

// A file that starts with one of this many key frames is reported in time.
static constexpr std::size_t kRecent = 1000;

void OpenStarts::Add(TimedPacket const& packet) {
  if (packet.key) _key_ns = packet.time_ns;
  if (!packet.leading) return;
  std::lock_guard lock(_mutex);
  ++_frames[_key_ns];
  if (_frames.size() <= kRecent + _files.size()) return;
  auto const old = std::find_if(_frames.begin(), _frames.end(),
                                [this](auto const& one) { return _files.count(one.first) == 0; });
  if (old != _frames.end()) _frames.erase(old);
}

void OpenStarts::AddFile(std::string const& path, std::int64_t time_ns) {
  std::lock_guard lock(_mutex);
  _files[time_ns] = path;
}

std::vector<std::string> OpenStarts::Lines() const {
  std::lock_guard lock(_mutex);
  std::vector<std::string> lines;
  for (auto const& [time_ns, path] : _files)
    if (auto const found = _frames.find(time_ns); found != _frames.end())
      lines.push_back(path + ": cannot decode " + Quantity(found->second, "frame") +
                      " after the first, with references to the file before");
  return lines;
}

}  // namespace kestro::tool
