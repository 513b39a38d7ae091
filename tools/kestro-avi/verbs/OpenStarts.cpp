#include "verbs/OpenStarts.h"

#include "cli/Text.h"

namespace kestro::tool {

// How many key frames the recorder may lag. Limits the number of lines as well.
static constexpr std::size_t kMost = 1000;

void OpenStarts::Add(TimedPacket const& packet) {
  if (packet.key) _key_ns = packet.time_ns;
  if (!packet.leading) return;
  std::lock_guard lock(_mutex);
  ++_frames[_key_ns];
  if (_frames.size() > kMost) Forget(_frames.begin()->first);
}

void OpenStarts::AddFile(std::string const& path, std::int64_t time_ns) {
  std::lock_guard lock(_mutex);
  _files[time_ns] = path;
  if (_files.size() > kMost) Forget(_files.begin()->first);
}

// Keeps only the line about a key frame that starts a file.
void OpenStarts::Forget(std::int64_t time_ns) {
  if (auto const line = LineAt(time_ns); line && _lines.size() < kMost) _lines.push_back(*line);
  _frames.erase(time_ns);
  _files.erase(time_ns);
}

std::optional<Notice> OpenStarts::LineAt(std::int64_t time_ns) const {
  auto const frames = _frames.find(time_ns);
  auto const file = _files.find(time_ns);
  if (frames == _frames.end() || file == _files.end()) return {};
  return Notice(file->second + ": cannot decode " + Quantity(frames->second, "frame") +
                    " after the first, with references to the file before",
                "undecodable", {{"file", file->second}, {"count", frames->second}});
}

Notices OpenStarts::Lines() const {
  std::lock_guard lock(_mutex);
  Notices lines = _lines;
  for (auto const& [time_ns, path] : _files)
    if (auto const line = LineAt(time_ns)) lines.push_back(*line);
  return lines;
}

}  // namespace kestro::tool
