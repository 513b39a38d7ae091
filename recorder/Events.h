// The events of a recording, and the files that they protect.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "avi/KeepMarker.h"
#include "avi/StartTime.h"
#include "recorder/Recorder.h"
#include "recorder/Worker.h"

namespace kestro::record {

// Keeps the times of events on the packets' clock, and protects the files that have packets of
// those times: at once in memory, and with a marker that is written on a thread of its own or, if
// threadless, in RunPosted. Files that are not yet recorded are protected when they begin.
//
// All functions may be called from any thread. The storage is used without a lock.
class Events {
 public:
  struct Span {
    std::int64_t from_ns, to_ns;  // or: lengths before and after
  };
  using Report = std::function<void(record::Event)>;

  // `options` must outlive the object.
  Events(RecorderOptions const& options, Report report);
  ~Events() { Finish(); }

  void Pushed(std::int64_t from_ns, std::int64_t to_ns);  // a packet
  // The end of the latest packet; nothing before the first one.
  std::optional<std::int64_t> Latest_ns() const;

  // Adds an event at a moment that Latest_ns has returned; if it is empty, at the first packet.
  // `time`: when that was, on the wall clock. `stored_ns`: up to where the open file is stored.
  // False after Finish.
  bool Add(std::string const& label, Span around, std::optional<std::int64_t> moment_ns,
           avi::StartTime const& time, std::int64_t stored_ns);

  // The time of the first event that has some after `time_ns`.
  std::optional<Span> After(std::int64_t time_ns) const;
  // The end of the events that overlap, from one that contains `time_ns`; else `time_ns`.
  std::int64_t Extend(std::int64_t time_ns) const;

  // The files.
  void Opened(std::string const& path, std::int64_t begin_ns);
  void Closed(std::string const& path, std::int64_t duration_ns);
  void Deleted(std::string const& path);
  // The open file is stored up to this time. Needed only when Waiting returns true.
  void Stored(std::int64_t time_ns);
  bool Waiting() const { return _waiting; }

  bool IsProtected(std::string const& path) const;
  // Removes a marker, and forgets why it was there.
  Result Unprotect(std::string const& path);
  std::uint64_t Count() const;
  std::uint64_t ProtectedFiles() const;  // of this recorder

  void Post(std::function<void()> task);  // on the thread that writes markers
  void RunPosted();
  void Finish();  // waits for the markers; no events are accepted after this

 private:
  struct Window {
    std::string label;
    avi::StartTime time;
    std::int64_t moment_ns, from_ns, to_ns;
    bool Touches(std::int64_t begin_ns, std::int64_t end_ns) const {
      return begin_ns < to_ns && end_ns > from_ns;
    }
  };
  using Windows = std::vector<std::shared_ptr<Window const>>;
  struct File {
    std::string path;
    std::int64_t begin_ns = 0, end_ns = INT64_MAX;  // INT64_MAX: open
    bool isProtected = false;
    Span span = {INT64_MAX, INT64_MIN};  // of its events
    avi::KeepMarker marker;
    unsigned version = 0, written = 0;  // of the marker
  };

  void Keep(Window window, std::int64_t moment_ns);
  void Protect(File& file, Window const& window);
  void ProtectStored(File& file, std::int64_t stored_ns);
  File* Find(std::string const& path) const;
  Worker& Writer();
  void Forget();
  void WriteMarker(std::string const& path);
  void ProtectEarlier(Window const& window);

  RecorderOptions const& _options;
  Report const _report;
  std::atomic<std::int64_t> _first_ns{INT64_MAX}, _latest_ns{INT64_MIN};  // packets
  std::atomic<bool> _waiting{false}, _early{false};

  mutable std::mutex _mutex;                  // protects what follows
  Windows _windows;                           // that later packets may touch
  Windows _earlyOnes;                         // before the first packet: lengths before and after
  Windows _later;                             // of the open file, if it gets so far
  std::vector<std::unique_ptr<File>> _files;  // in order of recording
  std::int64_t _stored_ns = INT64_MIN;        // up to where the open file is stored
  std::uint64_t _count = 0;
  bool _finished = false;
  std::optional<Worker> _writer;  // once it is needed
};

}  // namespace kestro::record
