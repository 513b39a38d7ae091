#include "recorder/Retention.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "avi/ClockAnchor.h"
#include "avi/Hashes.h"
#include "avi/Text.h"
#include "recorder/Refusal.h"
#include "recorder/SegmentNames.h"
#include "recorder/StorageOf.h"

namespace kestro::record {

using namespace std::chrono_literals;

static constexpr std::uint64_t kWorthSplitting = 256 * 1024;  // bytes in the open file
static constexpr std::int64_t kSmallestSlack = 64 * 1024;

static constexpr auto kRescan = 60s, kPeriod = 1s;
static constexpr auto kPause = 100ms, kShortPause = 10ms;  // between files
static constexpr auto kComing = 10s;     // how long to wait for the space of a deleted file, ...
static constexpr auto kComingFull = 1s;  // ... and while writing waits
static constexpr auto kMostWait = 10s;   // for space, while nothing is being freed
static constexpr auto kMostStop = 2s;    // for deleting at the end

Retention::Retention(RecorderOptions const& options, Hooks hooks)
    : _options(options),
      _hooks(std::move(hooks)),
      _folder(_options),
      _pattern(_options.path.substr(FolderOf(_options.path).size())),
      _start_ns(Now_ns()),
      _files(StorageOf(_options), {[this](std::string const& path) { return Created(path); },
                                   [this](std::uint64_t bytes) { Grew(bytes); },
                                   [this](bool optional) { return AwaitSpace(optional); }}),
      _old(_folder, _pattern, _hooks) {
  if (!_pattern.Valid()) return;  // refused by SegmentNames
  if (!Scan()) {
    if (errno == ENOTSUP)
      throw Refusal(Code::kInvalid, "the storage cannot list its files, which limits need");
    throw Refusal(Code::kIo,
                  _options.path + ": the folder cannot be read: " + std::strerror(errno));
  }
  Measure();
  if (_options.retention.keepFree && _usage.free == UINT64_MAX)
    throw Refusal(Code::kInvalid, "the free space is unknown and cannot be limited");
}

void Retention::Start() {
  if (_segmentSize < _options.segments.size)
    _hooks.report({Event::kNote, _options.path,
                   _options.path + ": files are smaller than " + avi::ByteCount(_segmentSize) +
                       ", a quarter of what the limits leave"});
  _started = true;
  if (!_options.threadless) _thread = std::thread([this] { Loop(); });
}

void Retention::Stop() {
  {
    Lock lock(_mutex);
    if (std::exchange(_stop, true) || !_started) return;
    _stopBy = Clock::now() + kMostStop;
    _wake.notify_all();
    _freed.notify_all();
    _freed.wait(lock, [this] { return !_stepping; });  // threadless: on another thread
  }
  if (_thread.joinable()) return _thread.join();
  while (_options.threadless && Step() && _urgent && Clock::now() < _stopBy) continue;
}

void Retention::Rescan() {
  Lock lock(_mutex);
  _rescan = _due = true;
  _wake.notify_one();
}

// Recordings and their side files are known from here on.
std::shared_ptr<Retention::NewFile> Retention::Created(std::string const& path) {
  auto const meaning = Catalogue::Recognise(_pattern, _folder.NameOf(path));
  if (!meaning) return nullptr;
  auto file = std::make_shared<NewFile>();
  // Hashes are written while a file is finished, which must go on: it cannot be deleted before.
  file->optional = meaning->ending == avi::HashFileFor("");
  if (meaning->ending == Catalogue::kMarker) return file;  // not a part of the recording
  Lock lock(_mutex);
  _busy[meaning->name][path] = file;
  _rescan |= meaning->ending.empty();
  _due = true;
  _wake.notify_one();
  return file;
}

void Retention::Expect(std::string const& path, std::uint64_t size) {
  Lock lock(_mutex);
  _expected[_folder.NameOf(path)] = size;
  _due = true;
  _wake.notify_one();
}

void Retention::Finished(std::string const& path) {
  std::int64_t const now_ns = Now_ns();
  std::string const name = _folder.NameOf(path);
  Lock lock(_mutex);
  _expected.erase(name);
  if (_busy.erase(name) == 0) return;
  _ended[name] = now_ns;
  _rescan = _due = true;
  _wake.notify_one();
}

void Retention::Grew(std::uint64_t bytes) {
  _written += bytes;
  if ((_slack -= static_cast<std::int64_t>(bytes)) > 0) return;
  Lock lock(_mutex);
  _due = true;
  _wake.notify_one();
}

bool Retention::AwaitSpace(bool optional) {
  auto const begin = Clock::now();
  Lock lock(_mutex);
  std::uint64_t const seen = _freedCount, refused = _refusedCount;
  auto const over = [&] {
    return _stop || _full || _freedCount != seen || (optional && _refusedCount != refused);
  };
  ++_waiters;
  _due = true;
  if (_options.threadless) {
    lock.unlock();
    HelpMyself();
    lock.lock();
  } else {
    _wake.notify_one();
    // A file that is being finished can be deleted soon.
    for (int tries = 6; !_freed.wait_for(lock, kMostWait, over) && --tries > 0;)
      if (!_deleting && !Finishing(lock)) break;
  }
  if (_freedCount == seen) --_waiters;
  auto const waited = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
  ++_counts.spaceWaits;
  _counts.longestSpaceWait_us =
      std::max(_counts.longestSpaceWait_us, static_cast<std::uint64_t>(waited.count()));
  return !_stop && !_full && _freedCount != seen;
}

// Threadless: frees space for the caller, which waits for it.
void Retention::HelpMyself() {
  for (auto const end = Clock::now() + 2 * kComingFull; Clock::now() < end && !_full;) {
    {
      Lock lock(_mutex);
      _freed.wait(lock, [this] { return !_stepping; });
      _stepping = true;
    }
    bool const deleted = Step();
    Lock lock(_mutex);
    _stepping = false;
    _freed.notify_all();
    if (deleted || Finishing(lock)) return;  // the caller has to finish the other files
    _wake.wait_for(lock, kShortPause);
  }
}

void Retention::Run() {
  if (!_options.threadless) return;
  {
    Lock lock(_mutex);
    bool const due = _due || Clock::now() - _stepped > kPeriod;
    if (_stepping || _stop || !due) return;
    _stepping = true;
  }
  bool const more = Step();
  Lock lock(_mutex);
  _due |= more;
  _stepping = false;
  _freed.notify_all();
}

void Retention::Loop() {
  for (bool last = false;;) {
    bool const more = Step();
    Lock lock(_mutex);
    if (_stop) {  // at least once more, since that may just have happened
      if ((last && !(more && _urgent)) || Clock::now() > _stopBy) return;
      last = true;
      continue;
    }
    Clock::duration const pause = _urgent ? kShortPause : kPause;
    if (more)  // half of the time is left to other users of the storage
      _wake.wait_for(lock, std::max(pause, _took), [this] { return _stop || _waiters > 0; });
    else
      _wake.wait_for(lock, kPeriod, [this] { return _stop || _due; });
  }
}

// Deletes a file if one has to go. Returns whether there was one.
bool Retention::Step() {
  if (_full) return false;
  bool rescan;
  {
    Lock lock(_mutex);
    rescan = std::exchange(_rescan, false);
    _due = false;
    _stepped = Clock::now();
  }
  if (rescan || Clock::now() - _old.Scanned() > kRescan) Scan();
  SpaceNeed need = Measure();
  std::size_t oldest = Oldest(need);
  // Recording ends only when what is in the folder now leaves no choice.
  bool const ends = need.critical && !Finishing(Lock(_mutex));
  if (oldest == _old.List().size() && need.space &&
      (ends || Clock::now() - _old.Scanned() > kPeriod)) {
    Scan();
    need = Measure();
    oldest = Oldest(need);
  }
  bool const found = oldest < _old.List().size();
  if (found) Delete(oldest);
  if (!found && need.space) GiveUp(need);
  return found;
}

bool Retention::Scan() {
  if (!_old.Scan()) return false;
  auto const& files = _old.List();
  std::set<std::string> names;
  for (OwnFile const& file : files) names.insert(file.name);
  Lock lock(_mutex);
  bool const clean = _ended.size() > names.size() + 100;  // others have deleted many
  for (auto ended = _ended.begin(); clean && ended != _ended.end();)
    ended = names.count(ended->first) != 0 ? std::next(ended) : _ended.erase(ended);
  _counts.protectedFiles = static_cast<std::uint64_t>(std::count_if(
      files.begin(), files.end(), [](OwnFile const& file) { return file.kept && file.present; }));
  return true;
}

std::set<std::string> Retention::Busy() const {
  Lock lock(_mutex);
  std::set<std::string> names;
  for (auto const& [name, files] : _busy) names.insert(name);
  return names;
}

// Whether a recording is closed but not finished: only writing it holds its NewFile.
bool Retention::Finishing(Lock const&) const {
  for (auto const& [name, files] : _busy) {
    auto const file = files.find(_folder.PathOf(name));
    if (file == files.end() || file->second.use_count() == 1) return true;
  }
  return false;
}

// Measures what there is, and compares it with the limits.
SpaceNeed Retention::Measure() {
  std::uint64_t const before = _usage.free, written = _writtenThen;
  _usage = {};
  _writtenThen = _written;
  _usage.free = _folder.Free();
  Lock lock(_mutex);
  if (before != UINT64_MAX && _usage.free != UINT64_MAX) {
    std::uint64_t const now = _usage.free + (_writtenThen - written);
    _coming -= std::min(_coming, now > before ? now - before : 0);
    if (_usage.free > before) Release();  // without us
  }
  auto const now = Clock::now();
  if (_waiters > 0) _comingUntil = std::min(_comingUntil, now + kComingFull);
  if (now >= _comingUntil) _coming = 0;
  _usage.coming = _coming;
  _usage.files = _busy.size();
  for (auto const& [name, files] : _busy)
    for (auto const& [path, file] : files) {
      std::uint64_t const size = file->size;
      auto const expected = _folder.NameOf(path) == name ? _expected.find(name) : _expected.end();
      if (expected != _expected.end() && expected->second > size)
        _usage.pending += expected->second - size;
      _usage.busy += size;
    }
  for (OwnFile const& file : _old.List()) {
    if (_busy.count(file.name) != 0) continue;
    _usage.own += file.Bytes();
    _usage.kept += file.kept ? file.Bytes() : 0;
    _usage.files += file.present && !file.kept;
  }
  _counts.free = _usage.free;
  SpaceNeed need = Judge(_options.retention, _usage);
  if (_waiters > 0 && _coming == 0) {
    need.space = true;
    if (!need.critical) need.limit.clear();
    need.critical = true;
  }
  _urgent = need.critical;
  _segmentSize = need.segmentSize;
  _slack = std::max(need.slack, kSmallestSlack);
  return need;
}

std::int64_t Retention::Now_ns() const {
  return _options.retention.keepAge_ns ? _options.clock() : 0;
}

std::int64_t Retention::Wall_ns() const {
  if (_options.start.clock == StartOptions::kSinceBoot) return 0;
  if (_options.start.wallClock) return _options.start.wallClock();
  return avi::ClockAnchor::Now::Read().wall_ns;
}

// The file that should be deleted, as in OldFiles.
std::size_t Retention::Oldest(SpaceNeed const& need) const {
  std::vector<std::int64_t> ages_ns(_old.List().size(), -1);
  auto const most_ns = _options.retention.keepAge_ns;
  if (most_ns) {
    std::int64_t const now_ns = Now_ns(), wall_ns = Wall_ns();
    Lock lock(_mutex);
    ages_ns = Ages_ns(_old.List(), {now_ns, _start_ns, wall_ns, _ended});
  }
  auto const busy = Busy();
  return _old.Oldest([&](std::size_t i) {
    bool const old = most_ns && ages_ns[i] > *most_ns;
    return (need.space || old) && busy.count(_old.List()[i].name) == 0;
  });
}

void Retention::Delete(std::size_t index) {
  auto const begin = Clock::now();
  _deleting = true;
  auto const outcome = _old.Delete(index);
  _deleting = false;
  _took = Clock::now() - begin;
  if (outcome.changed) Rescan();
  if (!outcome.deleted) return;
  OwnFile const& file = *outcome.deleted;
  std::string const path = _folder.PathOf(file.name);
  Event event{Event::kDeleted, path, path + ": deleted to stay within the limits"};
  event.bytes = file.Bytes();
  {
    Lock lock(_mutex);
    _counts.deletedFiles += file.present;
    _counts.deletedBytes += event.bytes;
    _ended.erase(file.name);
  }
  std::uint64_t const bytes = event.bytes;
  _hooks.report(std::move(event));
  Settle(bytes);
}

// Gives the storage time to free the space of a deleted file. While another program has it open,
// the space is not free: it then counts as free for a while, so that no further files are deleted
// for nothing.
void Retention::Settle(std::uint64_t bytes) {
  auto const before = _usage.free, written = _writtenThen;
  auto const arrived = [&] {
    _writtenThen = _written;
    _usage.free = _folder.Free();
    return _usage.free == UINT64_MAX ||
           _usage.free + (_writtenThen - written) + bytes / 2 >= before + bytes;
  };
  bool free = arrived();
  for (auto const end = Clock::now() + kComingFull;
       !free && !_options.threadless && Clock::now() < end; free = arrived()) {
    Lock lock(_mutex);
    if (_wake.wait_for(lock, kPause / 2, [this] { return _stop; })) break;
  }
  Lock lock(_mutex);
  if (!free) {
    _coming += bytes;
    _comingUntil = Clock::now() + (_waiters > 0 ? 0s : kComing);
  }
  Release();
}

// Those that wait try again. They count as waiting only when they come back. Needs the lock.
void Retention::Release() {
  ++_freedCount;
  _waiters = 0;
  _freed.notify_all();
}

// Nothing may be deleted now; files that are being finished may be soon.
void Retention::GiveUp(SpaceNeed const& need) {
  {
    Lock lock(_mutex);
    if (Finishing(lock)) {
      ++_refusedCount;
      _freed.notify_all();
      return;
    }
  }
  auto const busy = Busy();
  std::string const open = busy.empty() ? "" : *busy.begin();
  if (need.critical) {
    std::string const path = open.empty() ? _options.path : _folder.PathOf(open);
    std::string const what =
        need.limit.empty() ? "the storage is full" : need.limit + " cannot be kept";
    _hooks.report({Event::kError, path,
                   path + ": " + what + ": nothing may be deleted (" + NothingElse(open) + ")"});
    Lock lock(_mutex);
    _full = true;
    _freed.notify_all();
  } else if (!open.empty() && _usage.busy >= kWorthSplitting && _splitFor != open) {
    _splitFor = open;  // so that it can be deleted next
    _hooks.split();
  }
}

// What is left, in words.
std::string Retention::NothingElse(std::string const& open) const {
  std::uint64_t kept = 0, refused = 0;
  for (OwnFile const& file : _old.List()) {
    if (file.name != open) ++(file.kept ? kept : refused);
  }
  std::string text;
  auto const add = [&text](std::string const& part) { text += (text.empty() ? "" : ", ") + part; };
  if (kept != 0) add(avi::Quantity(kept, "protected file"));
  if (refused != 0) add(avi::Quantity(refused, "file") + " that cannot be deleted");
  if (!open.empty()) add("the open file");
  return text.empty() ? "there are no files" : text;
}

void Retention::AddTo(Status& status) const {
  Lock lock(_mutex);
  status.deletedFiles = _counts.deletedFiles;
  status.deletedBytes = _counts.deletedBytes;
  status.protectedFiles = _counts.protectedFiles;
  status.free = _counts.free;
  status.spaceWaits = _counts.spaceWaits;
  status.longestSpaceWait_us = _counts.longestSpaceWait_us;
}

}  // namespace kestro::record
