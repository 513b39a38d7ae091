// Loop recording.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "recorder/OldFiles.h"
#include "recorder/Recorder.h"
#include "recorder/SpaceLimits.h"
#include "recorder/WaitingStorage.h"

namespace kestro::record {

// Keeps the recordings in a folder within RetentionOptions, see there. Files that are to be
// recorded are opened through Files(): they are known then, and writing them waits for free space.
//
// Files are deleted on a thread of its own or, if threadless, in Run and in the writes that wait.
// No lock is held while the storage or the hooks are called. All functions but Start and Stop may
// be called from any thread.
class Retention {
 public:
  struct Hooks : OldFiles::Hooks {  // called on any thread
    std::function<void()> split;    // begin a new file with the next key frame
  };

  // Throws Refusal when the limits cannot be kept in this storage.
  Retention(RecorderOptions const& options, Hooks hooks);
  ~Retention() { Stop(); }

  void Start();  // not before the hooks may be called
  Storage& Files() { return _files; }
  // The size of the open file if it were closed now: data in memory and its index are still to
  // come.
  void Expect(std::string const& path, std::uint64_t size);
  // A file that was opened for writing is complete, and nothing uses it any more.
  void Finished(std::string const& path);
  // Looks at the folder again soon: something else has changed there.
  void Rescan();
  void Run();  // threadless: what the thread would do; at most one file is deleted
  // Deletes what exceeds the limits, as far as that is done soon. Nothing waits for space after it.
  void Stop();

  // The most bytes that a segment should have.
  std::uint64_t SegmentSize() const { return _segmentSize; }
  // Whether the limits cannot be kept; an error was reported. The open file must be closed.
  bool Full() const { return _full; }
  void AddTo(Status& status) const;

 private:
  using Clock = std::chrono::steady_clock;
  using Lock = std::unique_lock<std::mutex>;
  using NewFile = WaitingStorage::NewFile;

  std::shared_ptr<NewFile> Created(std::string const& path);
  void Grew(std::uint64_t bytes);
  bool AwaitSpace(bool optional);
  void HelpMyself();
  void Release();

  void Loop();
  bool Step();
  bool Scan();
  SpaceNeed Measure();
  std::size_t Oldest(SpaceNeed const& need) const;
  void Delete(std::size_t index);
  void Settle(std::uint64_t bytes);
  void GiveUp(SpaceNeed const& need);
  std::string NothingElse(std::string const& open) const;
  std::set<std::string> Busy() const;
  bool Finishing(Lock const&) const;
  std::int64_t Now_ns() const;
  std::int64_t Wall_ns() const;

  RecorderOptions const _options;  // with the application's storage
  Hooks const _hooks;
  RecordingFolder const _folder;
  avi::NamePattern const _pattern;
  std::int64_t const _start_ns;  // on the recorder's clock
  WaitingStorage _files;

  // Used by the thread that runs Step.
  OldFiles _old;
  SpaceUsage _usage;
  std::uint64_t _writtenThen = 0;  // _written when _usage was measured
  std::uint64_t _coming = 0;
  Clock::time_point _comingUntil{};
  Clock::duration _took{};  // deleting the last file
  bool _urgent = false;     // a limit is exceeded
  bool _started = false;
  std::string _splitFor;  // the open file when a split was requested

  std::atomic<std::uint64_t> _segmentSize{UINT64_MAX};
  std::atomic<std::uint64_t> _written{0};
  std::atomic<std::int64_t> _slack{0};  // bytes that may be written until Step is due
  std::atomic<bool> _full{false}, _deleting{false};

  mutable std::mutex _mutex;  // protects what follows
  std::condition_variable _wake, _freed;
  // Files that are open or not finished, with their side files by path.
  std::map<std::string, std::map<std::string, std::shared_ptr<NewFile>>> _busy;
  std::map<std::string, std::uint64_t> _expected;  // sizes of these recordings
  std::map<std::string, std::int64_t> _ended;      // finished files of this recorder
  bool _rescan = false, _due = true, _stop = false, _stepping = false;
  Clock::time_point _stepped{}, _stopBy{};
  int _waiters = 0;
  std::uint64_t _freedCount = 0;    // how often space may have become free
  std::uint64_t _refusedCount = 0;  // how often nothing could be deleted for now
  Status _counts;
  std::thread _thread;
};

}  // namespace kestro::record
