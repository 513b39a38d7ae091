#include "recorder/OldFiles.h"

#include <cerrno>
#include <cstring>

namespace kestro::record {

static constexpr std::chrono::seconds kRetry(30), kRetryChanged(1);

bool OldFiles::Scan() {
  std::vector<Storage::Entry> entries;
  if (!_folder.List(entries)) return false;
  _files = Catalogue::Read(_pattern, entries);
  for (OwnFile& file : _files)
    file.kept |= _hooks.isProtected && _hooks.isProtected(_folder.PathOf(file.name));
  _scanned = Clock::now();
  return true;
}

std::size_t OldFiles::Oldest(std::function<bool(std::size_t)> const& goes) const {
  auto const now = Clock::now();
  for (std::size_t i = 0; i < _files.size(); ++i) {
    auto const refused = _refused.find(_files[i].name);
    bool const possible = !_files[i].kept && (refused == _refused.end() || refused->second <= now);
    if (possible && goes(i)) return i;
  }
  return _files.size();
}

bool OldFiles::IsProtected(OwnFile const& file) const {
  return _folder.Exists(file.name + Catalogue::kMarker) ||
         (_hooks.isProtected && _hooks.isProtected(_folder.PathOf(file.name)));
}

OldFiles::Outcome OldFiles::Delete(std::size_t index) {
  OwnFile& file = _files[index];
  file.kept = IsProtected(file);
  if (file.kept) return {};
  if (!RemoveParts(file)) return {std::nullopt, true};
  Outcome outcome{std::move(file)};
  _refused.erase(outcome.deleted->name);
  _files.erase(_files.begin() + static_cast<std::ptrdiff_t>(index));
  return outcome;
}

// The recording first: a power cut in between leaves side files alone, which are deleted in their
// turn.
bool OldFiles::RemoveParts(OwnFile const& file) {
  for (Storage::Entry const& part : file.parts) {
    if (_folder.Remove(part) || errno == ENOENT) continue;
    bool const changed = errno == ESTALE;
    std::string const path = _folder.PathOf(part.name);
    if (!changed)
      _hooks.report({Event::kWarning, path, path + ": cannot be deleted: " + std::strerror(errno)});
    _refused[file.name] = Clock::now() + (changed ? kRetryChanged : kRetry);
    return false;
  }
  return true;
}

}  // namespace kestro::record
