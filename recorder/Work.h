// The implementation of Recorder.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "recorder/RecordingLock.h"
#include "recorder/Segments.h"
#include "recorder/Worker.h"
#include "stream/PacketQueue.h"

namespace kestro::record {

// Passes an application's packets to Segments, optionally through a queue, or to a single
// FileWriter.
class Recorder::Work {
 public:
  Work(RecorderOptions const& options, Tracks const& tracks);  // throws Refusal
  ~Work() { static_cast<void>(Stop()); }

  Code Push(std::size_t track, Payload const& payload);
  void SplitAt(std::int64_t time_ns);
  Result Stop();
  Status GetStatus() const;
  std::string DescribeSync() const;

 private:
  void SortTracks(Tracks const& tracks);
  void UseStoredRates();
  void MakeQueue();
  Code CheckPayload(std::size_t track, Payload const& payload) const;
  bool PassOn(std::size_t track, stream::Packet& packet);
  std::int64_t DefaultDuration_ns(std::size_t track, stream::Packet const& packet) const;
  void Report(Event event);
  bool End();

  RecorderOptions const _options;
  Tracks _tracks;                       // in file order
  std::vector<std::int64_t> _frame_ns;  // how long a frame lasts, by track
  std::vector<std::size_t> _numberOf;   // number in the file, by the application's number
  RecordingLock _lock;

  mutable std::mutex _mutex;  // protects what follows
  std::set<std::string> _reported;
  std::string _error, _last;  // the first error; the last error or warning
  std::uint64_t _warnings = 0;

  std::unique_ptr<Packets> _packets;
  FileStarts _starts;
  Worker _worker;
  std::unique_ptr<Segments> _segments;  // null when verbatim
  std::mutex _fileMutex;
  std::unique_ptr<FileWriter> _file;  // null unless verbatim
  std::int64_t _fileEnd_ns = 0;
  std::unique_ptr<stream::PacketQueue> _queue;   // null without a queue
  std::vector<stream::IPort*> _inputs;           // by number in the file
  std::vector<std::atomic<unsigned>> _sequence;  // next packet number, by track

  std::atomic<bool> _ended{false}, _failed{false};
  std::mutex _stopMutex;
  bool _stopped = false;
};

}  // namespace kestro::record
