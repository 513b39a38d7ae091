#include "soak/Soak.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "soak/Film.h"

namespace fs = std::filesystem;

namespace kestro::soak {

using record::Event;
using record::RecorderOptions;
using record::SyncOptions;

static constexpr std::int64_t kSecond_ns = 1000000000;
static constexpr std::int64_t kDay_ns = 86400 * kSecond_ns;
static constexpr std::int64_t kBegin_ns = 1795000000 * kSecond_ns;  // in 2026
static constexpr unsigned kHour = 1800;                             // groups of pictures
static constexpr std::size_t kMostProtected = 1;                    // files
static constexpr long kMoreMemory_KiB = 8 << 10, kMoreFiles = 4;
static constexpr int kCard_MiB = 64;

Soak::Soak(unsigned seed, std::FILE* out)
    : _out(out), _random(seed), _card(kCard_MiB), _now_ns(0), _jump_ns(0) {}

static record::Tracks CameraTracks() {
  record::TrackInfo video, audio;
  video.width = 320;
  video.height = 180;
  video.frameRate = {25, 1};
  audio.codec = record::TrackInfo::kPcm;
  audio.rate = Film::kRate;
  audio.channels = 1;
  return {video, audio};
}

// Every recording has other limits and another sync mode; every fourth records events only.
static RecorderOptions Settings(unsigned session) {
  constexpr std::uint64_t kMiB = 1 << 20;
  RecorderOptions options;
  options.segments.time_ns = 60 * kSecond_ns;
  options.sync.mode = static_cast<SyncOptions::Mode>(session % 4);
  options.sync.reserve_ns = 90 * kSecond_ns;
  options.hash = session % 7 == 6;
  options.retention.keepFree = 4 * kMiB;
  if (session % 3 == 1) options.retention.keepBytes = 40 * kMiB;
  if (session % 3 == 2) options.retention.keepFiles = 9;
  if (session % 5 == 3) options.retention.keepAge_ns = 300 * kSecond_ns;
  options.events.only = session % 4 == 3;
  return options;
}

bool Soak::Begin() {
  RecorderOptions options = Settings(_sessions++);
  options.path = _card.Folder() + "cam-%05d.avi";
  options.clock = [this] { return _now_ns.load(); };
  options.start.wallClock = [this] { return kBegin_ns + _now_ns + _jump_ns; };
  options.onEvent = [this](Event const& event) { HandleEvent(event); };
  _number = (_number + Film::kGroup - 1) / Film::kGroup * Film::kGroup;
  _checker.Begin(_number, !options.events.only);
  record::Result why;
  _recorder = record::Recorder::Open(options, CameraTracks(), why);
  Expect(why, "open");
  return _recorder != nullptr;
}

void Soak::End() {
  Expect(_recorder->Stop(), "stop");
  _checker.End(_number);
  record::Status const status = _recorder->GetStatus();
  _total.packets += status.packets;
  _total.bytes += status.bytes;
  _total.spaceWaits += status.spaceWaits;
  _total.longestSpaceWait_us = std::max(_total.longestSpaceWait_us, status.longestSpaceWait_us);
  _total.events += status.events;
  _recorder.reset();
}

void Soak::Expect(record::Result const& result, char const* what) {
  if (!result) _checker.Fault(std::string(what) + ": " + result.text);
}

// On the recorder's thread.
void Soak::HandleEvent(Event const& event) {
  if (event.kind == Event::kClosed) {
    if (!event.complete) _checker.Fault(event.text);
    _checker.Check(event.path);
  }
  if (event.kind == Event::kError) _checker.Fault(event.text);
  std::lock_guard lock(_mutex);
  if (event.kind == Event::kDeleted) ++_deleted;
  if (event.kind == Event::kProtected &&
      std::find(_protected.begin(), _protected.end(), event.path) == _protected.end())
    _protected.push_back(event.path);
  if (event.kind != Event::kWarning) return;
  ++_warnings;
  _lastWarning = event.text;
}

void Soak::PushGroup() {
  for (std::uint64_t i = 0; i < Film::kGroup; ++i, ++_number) {
    std::string const video = Film::Video(_number), audio = Film::Audio(_number);
    record::Payload payload;
    payload.time_ns = _now_ns;
    payload.data = video.data();
    payload.size = video.size();
    payload.key = Film::IsKey(_number);
    bool taken = _recorder->Push(0, payload) == record::Code::kOk;
    payload.data = audio.data();
    payload.size = audio.size();
    taken = taken && _recorder->Push(1, payload) == record::Code::kOk;
    _now_ns += Film::kFrame_ns;
    if (!taken) return _checker.Fault("a packet was refused: " + _recorder->GetStatus().lastError);
  }
}

void Soak::MarkEvent() {
  EndProtections();
  std::string const label = "event at " + std::to_string(_number);
  if (_recorder->Event(label, 20 * kSecond_ns, 20 * kSecond_ns) != record::Code::kOk)
    _checker.Fault("an event was refused");
}

// All protected files must be there; the oldest may go from now on.
void Soak::EndProtections() {
  std::unique_lock lock(_mutex);
  auto const kept = _protected;
  while (_protected.size() > kMostProtected) _protected.pop_front();
  lock.unlock();
  for (std::string const& path : kept)
    if (!fs::exists(path) || !fs::exists(path + ".keep"))
      _checker.Fault(path + ": was protected, and is gone");
  for (std::size_t i = 0; i + kMostProtected < kept.size(); ++i)
    Expect(_recorder->Unprotect(kept[i]), "end of a protection");
}

void Soak::LoseSource() {
  ++_losses;
  Expect(_recorder->ChangeTracks({}), "end of the tracks");
  std::uint64_t const next = (_number / Film::kGroup + 2) * Film::kGroup;
  _checker.Jump(_number, next);
  _number = next;
  _now_ns += static_cast<std::int64_t>(_random() % 120) * kSecond_ns;
  Expect(_recorder->ChangeTracks(CameraTracks()), "new tracks");
}

void Soak::Disturb() {
  if (OneIn(600)) MarkEvent();
  if (OneIn(900)) _recorder->Split();
  if (OneIn(1800)) LoseSource();
  if (OneIn(5400)) {
    ++_jumps;
    _jump_ns = (static_cast<std::int64_t>(_random() % 800) - 400) * kDay_ns;
  }
  if (_fullFor == 0 && OneIn(5400)) {
    ++_fills;
    _card.Fill();
    _fullFor = 30;
  } else if (_fullFor > 0 && --_fullFor == 0) {
    _card.Empty();
  }
  if (OneIn(6 * kHour)) {
    End();
    Begin();
  }
}

static long Memory_KiB() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

static long Descriptors() {
  return static_cast<long>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

// Memory and open files must not grow after the first quarter.
void Soak::CheckHour(bool early) {
  if (std::string const changed = _card.Changed(); !changed.empty())
    _checker.Fault("foreign files have changed: " + changed);
  _memory = Memory_KiB();
  _files = Descriptors();
  if (early) {
    _mostMemory = std::max(_mostMemory, _memory);
    _mostFiles = std::max(_mostFiles, _files);
  }
  if (_memory > _mostMemory + kMoreMemory_KiB)
    _checker.Fault("memory has grown from " + std::to_string(_mostMemory) + " to " +
                   std::to_string(_memory) + " KiB");
  if (_files > _mostFiles + kMoreFiles)
    _checker.Fault("open files have grown from " + std::to_string(_mostFiles) + " to " +
                   std::to_string(_files));
  EndProtections();
}

void Soak::Print(unsigned hour) {
  std::lock_guard lock(_mutex);
  std::fprintf(
      _out,
      "%u h: %llu files checked (%.1f GB), %llu deleted, %llu on the card, %.1f MiB free; "
      "%llu events, %llu losses, %llu full cards, %llu clock jumps, %u recordings; "
      "%llu waits for space (%.2f s at most); %ld KiB, %ld descriptors\n",
      hour, static_cast<unsigned long long>(_checker.Files()),
      static_cast<double>(_checker.Bytes()) / 1e9, static_cast<unsigned long long>(_deleted),
      static_cast<unsigned long long>(_card.Numbers().size()),
      static_cast<double>(_card.Free()) / (1 << 20), static_cast<unsigned long long>(_total.events),
      static_cast<unsigned long long>(_losses), static_cast<unsigned long long>(_fills),
      static_cast<unsigned long long>(_jumps), _sessions,
      static_cast<unsigned long long>(_total.spaceWaits),
      static_cast<double>(_total.longestSpaceWait_us) / 1e6, _memory, _files);
  std::fflush(_out);
}

bool Soak::Run(unsigned hours) {
  if (Begin()) {
    for (std::uint64_t group = 1; group <= std::uint64_t{hours} * kHour; ++group) {
      PushGroup();
      if (_recorder) Disturb();
      if (!_recorder || !_checker.Faults().empty()) break;
      if (group % kHour == 0) CheckHour(group <= std::uint64_t{hours} * kHour / 4 + kHour);
      if (group % (24 * kHour) == 0) Print(static_cast<unsigned>(group / kHour));
    }
    if (_recorder) End();
  }
  Print(hours);
  if (_warnings != 0)
    std::fprintf(_out, "%llu warnings, the last: %s\n", static_cast<unsigned long long>(_warnings),
                 _lastWarning.c_str());
  for (std::string const& fault : _checker.Faults())
    std::fprintf(_out, "FAULT: %s\n", fault.c_str());
  return _checker.Faults().empty();
}

}  // namespace kestro::soak
