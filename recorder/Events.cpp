#include "recorder/Events.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "avi/NamePattern.h"
#include "recorder/MarkerFile.h"
#include "recorder/SegmentNames.h"
#include "recorder/StorageOf.h"

namespace kestro::record {

using avi::KeepMarker;
using avi::StartTime;

static constexpr std::int64_t kRounding_ns = 1000;  // of packet times, as in Segments
static constexpr std::size_t kMostWindows = 256, kMostFiles = 4096;
static constexpr std::int64_t k2020_ns = std::int64_t{1577836800} * 1000000000;
static constexpr std::int64_t kStep_ns = 2000000000;  // FAT rounds down the times of files by this
static constexpr std::size_t kMostListed = 64;        // events in a marker

Events::Events(RecorderOptions const& options, Report report)
    : _options(options), _report(std::move(report)) {}

void Events::Pushed(std::int64_t from_ns, std::int64_t to_ns) {
  if (_first_ns == INT64_MAX) {
    std::int64_t none = INT64_MAX;
    _first_ns.compare_exchange_strong(none, from_ns);
  }
  std::int64_t latest_ns = _latest_ns;
  while (latest_ns < to_ns && !_latest_ns.compare_exchange_weak(latest_ns, to_ns)) continue;
  if (!_early) return;
  std::lock_guard lock(_mutex);
  if (_finished) return;
  for (auto const& window : _earlyOnes) Keep(*window, from_ns);
  _earlyOnes.clear();
  _early = false;
}

std::optional<std::int64_t> Events::Latest_ns() const {
  std::int64_t const latest_ns = _latest_ns;
  if (latest_ns == INT64_MIN) return std::nullopt;
  return latest_ns;
}

// Adds a window around a moment for the files that are there and for later ones. The packet before
// an event always counts. When there are too many windows, the first ones are united.
void Events::Keep(Window window, std::int64_t moment_ns) {
  window.moment_ns = moment_ns;
  window.from_ns = moment_ns - std::max(window.from_ns, 2 * kRounding_ns);
  window.to_ns += moment_ns;
  auto const kept = std::make_shared<Window>(std::move(window));
  for (auto const& file : _files) {
    if (!kept->Touches(file->begin_ns, file->end_ns)) continue;
    if (file->end_ns != INT64_MAX || kept->Touches(file->begin_ns, _stored_ns))
      Protect(*file, *kept);
    else
      _later.push_back(kept);
  }
  _waiting = !_later.empty();
  bool const clock = kept->time.set && kept->time.time_ns >= k2020_ns;
  if (kept->from_ns < _first_ns && clock && _options.events.protect)
    Writer().Post([this, kept] { ProtectEarlier(*kept); });
  if (_windows.size() == kMostWindows) {
    auto const both = std::make_shared<Window>(*_windows[1]);
    both->from_ns = std::min(both->from_ns, _windows[0]->from_ns);
    both->to_ns = std::max(both->to_ns, _windows[0]->to_ns);
    _windows.erase(_windows.begin());
    _windows[0] = both;
  }
  _windows.push_back(kept);
}

bool Events::Add(std::string const& label, Span around, std::optional<std::int64_t> moment_ns,
                 StartTime const& time, std::int64_t stored_ns) {
  Window window{KeepMarker::Label(label), time, 0, around.from_ns, around.to_ns};
  std::lock_guard lock(_mutex);
  if (_finished) return false;
  ++_count;
  _stored_ns = stored_ns;
  if (moment_ns) {
    Keep(std::move(window), *moment_ns);
  } else if (_earlyOnes.size() < kMostWindows) {
    _earlyOnes.push_back(std::make_shared<Window>(std::move(window)));
    _early = true;
  }
  return true;
}

std::optional<Events::Span> Events::After(std::int64_t time_ns) const {
  std::lock_guard lock(_mutex);
  std::optional<Span> first;
  for (auto const& window : _windows)
    if (window->to_ns > time_ns && (!first || window->from_ns < first->from_ns))
      first = Span{window->from_ns, window->to_ns};
  return first;
}

std::int64_t Events::Extend(std::int64_t time_ns) const {
  std::lock_guard lock(_mutex);
  for (bool extended = true; extended;) {
    extended = false;
    for (auto const& window : _windows) {
      if (window->from_ns > time_ns || window->to_ns <= time_ns) continue;
      time_ns = window->to_ns;
      extended = true;
    }
  }
  return time_ns;
}

// Events that end before a file begins cannot touch later ones.
void Events::Opened(std::string const& path, std::int64_t begin_ns) {
  std::lock_guard lock(_mutex);
  auto const old = std::remove_if(_windows.begin(), _windows.end(), [begin_ns](auto const& window) {
    return window->to_ns <= begin_ns;
  });
  _windows.erase(old, _windows.end());
  auto& file = *_files.emplace_back(std::make_unique<File>());
  file.path = path;
  file.begin_ns = begin_ns;
  _later = _windows;
  ProtectStored(file, begin_ns + kRounding_ns);
  Forget();
}

void Events::Closed(std::string const& path, std::int64_t duration_ns) {
  std::lock_guard lock(_mutex);
  File* const file = Find(path);
  if (file == nullptr) return;
  file->end_ns = file->begin_ns + duration_ns;
  ProtectStored(*file, file->end_ns);
  _later.clear();
  _waiting = false;
}

void Events::Stored(std::int64_t time_ns) {
  std::lock_guard lock(_mutex);
  if (!_files.empty() && _files.back()->end_ns == INT64_MAX) ProtectStored(*_files.back(), time_ns);
}

// Takes those of the later events that an open file has reached.
void Events::ProtectStored(File& file, std::int64_t stored_ns) {
  _stored_ns = stored_ns;
  for (auto& window : _later) {
    if (!window->Touches(file.begin_ns, stored_ns)) continue;
    Protect(file, *window);
    window = nullptr;
  }
  _later.erase(std::remove(_later.begin(), _later.end(), nullptr), _later.end());
  _waiting = !_later.empty();
}

void Events::Deleted(std::string const& path) {
  std::lock_guard lock(_mutex);
  for (std::size_t i = 0; i < _files.size(); ++i)
    if (_files[i]->path == path) _files.erase(_files.begin() + static_cast<std::ptrdiff_t>(i--));
}

Events::File* Events::Find(std::string const& path) const {
  for (auto file = _files.rbegin(); file != _files.rend(); ++file)
    if ((*file)->path == path) return file->get();
  return nullptr;
}

// Limits the list: markers that are written do not need it.
void Events::Forget() {
  for (std::size_t i = 0; _files.size() > kMostFiles && i < _files.size(); ++i)
    if (_files[i]->version == _files[i]->written)
      _files.erase(_files.begin() + static_cast<std::ptrdiff_t>(i--));
}

void Events::Protect(File& file, Window const& window) {
  if (!_options.events.protect) return;
  auto const text = [&window](std::int64_t time_ns) {
    return StartTime{window.time.time_ns + time_ns - window.moment_ns, window.time.set}.Text();
  };
  KeepMarker::Event const event{window.label, text(window.moment_ns), text(window.from_ns),
                                text(window.to_ns)};
  file.isProtected = true;
  if (window.from_ns < file.span.from_ns) file.marker.from = event.from;
  if (window.to_ns > file.span.to_ns) file.marker.to = event.to;
  file.span.from_ns = std::min(file.span.from_ns, window.from_ns);
  file.span.to_ns = std::max(file.span.to_ns, window.to_ns);
  if (file.marker.events.size() < kMostListed) file.marker.events.push_back(event);
  ++file.version;
  Writer().Post([this, path = file.path] { WriteMarker(path); });
}

bool Events::IsProtected(std::string const& path) const {
  std::lock_guard lock(_mutex);
  File const* const file = Find(path);
  return file != nullptr && file->isProtected;
}

Result Events::Unprotect(std::string const& path) {
  {
    std::lock_guard lock(_mutex);
    if (File* const file = Find(path)) {
      file->isProtected = false;
      file->marker = {};
      file->span = {INT64_MAX, INT64_MIN};
      file->written = ++file->version;
    }
  }
  // Not on the writer's thread: it may be waiting for the space that this file occupies.
  int const error = MarkerFile(StorageOf(_options)).Remove(path);
  if (error != 0) return {Code::kIo, path + KeepMarker::kEnding + ": " + std::strerror(error)};
  std::lock_guard lock(_mutex);
  File* const file = Find(path);
  if (file == nullptr || !file->isProtected || _finished) return {};
  // A new event came, and its marker may have been removed.
  ++file->version;
  Writer().Post([this, path] { WriteMarker(path); });
  return {};
}

std::uint64_t Events::Count() const {
  std::lock_guard lock(_mutex);
  return _count;
}

std::uint64_t Events::ProtectedFiles() const {
  std::lock_guard lock(_mutex);
  std::uint64_t count = 0;
  for (auto const& file : _files) count += file->isProtected;
  return count;
}

Worker& Events::Writer() {
  if (!_writer) try {
      _writer.emplace(_options.threadless);
    } catch (std::system_error const&) {  // no thread: markers are written in RunPosted
      _writer.emplace(true);
    }
  return *_writer;
}

void Events::Post(std::function<void()> task) {
  std::lock_guard lock(_mutex);
  if (!_finished) Writer().Post(std::move(task));
}

void Events::RunPosted() {
  Worker* writer;
  {
    std::lock_guard lock(_mutex);
    writer = _writer ? &*_writer : nullptr;
  }
  if (writer != nullptr) writer->RunPosted();
}

void Events::Finish() {
  Worker* writer;
  {
    std::lock_guard lock(_mutex);
    if (std::exchange(_finished, true) || !_writer) return;
    writer = &*_writer;
  }
  writer->Finish();
}

// Writes the marker of a file if it has changed. A file that was deleted, or that is no longer
// protected, gets none.
void Events::WriteMarker(std::string const& path) {
  KeepMarker marker;
  unsigned version = 0;
  {
    std::lock_guard lock(_mutex);
    File const* const found = Find(path);
    if (found == nullptr || found->version == found->written) return;
    version = found->version;
    marker = found->marker;
  }
  MarkerFile const file(StorageOf(_options));
  std::string const why = file.Write(path, marker);
  bool kept = false, current = false;
  {
    std::lock_guard lock(_mutex);
    File* const found = Find(path);
    kept = found != nullptr && found->isProtected;
    current = kept && found->version == version;
    if (current && why.empty()) found->written = version;
  }
  if (kept && !current) return;  // another task writes the latest version
  if (kept && !why.empty()) {
    _report({record::Event::kWarning, path, path + ": no marker was written: " + why});
  } else if (!kept || !StorageOf(_options).Exists(path)) {
    static_cast<void>(file.Remove(path));
  } else {
    _report({record::Event::kProtected, path, path + ": protected: " + marker.events.back().label});
  }
}

// Protects the files of earlier recorders that ended within the time, by the wall clock.
void Events::ProtectEarlier(Window const& window) {
  std::vector<Storage::Entry> entries;
  Storage& storage = StorageOf(_options);
  std::string const folder = FolderOf(_options.path);
  if (!storage.List(folder, entries)) return;
  avi::NamePattern const pattern(_options.path.substr(folder.size()));
  // To the clock of packets.
  auto const timeOf = [&window](std::int64_t wall_ns) {
    return wall_ns - window.time.time_ns + window.moment_ns;
  };
  for (Storage::Entry const& entry : entries) {
    std::int64_t const end_ns = timeOf(entry.modified_ns) + kStep_ns;
    if (!entry.plain || !pattern.Match(entry.name) || entry.modified_ns < k2020_ns ||
        end_ns <= window.from_ns || end_ns > window.moment_ns + 2 * kStep_ns)
      continue;
    File earlier;
    earlier.path = folder + entry.name;
    earlier.begin_ns = INT64_MIN;
    earlier.end_ns = end_ns;
    earlier.marker = MarkerFile(storage).Read(earlier.path);
    auto const from = avi::IsoTime::Parse(earlier.marker.from);
    auto const to = avi::IsoTime::Parse(earlier.marker.to);
    if (from && to) earlier.span = {timeOf(from->time_ns), timeOf(to->time_ns)};
    std::lock_guard lock(_mutex);
    if (Find(earlier.path) != nullptr) continue;  // of this recorder, or known
    auto const first = _files.insert(_files.begin(), std::make_unique<File>(std::move(earlier)));
    Protect(**first, window);
  }
}

}  // namespace kestro::record
