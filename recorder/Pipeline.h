// Takes the packets of one set of tracks from Push to the files.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recorder/EventGate.h"
#include "recorder/Events.h"
#include "recorder/Segments.h"
#include "recorder/TrackSet.h"
#include "stream/PacketQueue.h"

namespace kestro::record {

// Passes packets to Segments, optionally through a queue, or to a single FileWriter. The plug-in
// must be loaded. All functions may be called from any thread.
class Pipeline {
 public:
  using Report = Segments::Report;  // both may be called by any function
  using Finish = Segments::Finish;

  // Options, names, retention and events must outlive the object; `names` is null when verbatim,
  // and `retention` without limits. Throws Refusal.
  Pipeline(RecorderOptions const& options, TrackSet tracks, SegmentNames* names,
           Retention* retention, Events& events, Report report, Finish finish);
  ~Pipeline() { static_cast<void>(End()); }

  // As Recorder::Push.
  Code Push(std::size_t track, Payload const& payload);
  void SplitAt(std::int64_t time_ns);
  // Records the events that wait for the next packet.
  void Wake();
  // Refuses further packets, stores those that are queued, and closes the file. False when a packet
  // is missing from the files. Every call returns the same result.
  bool End();

  // When a packet was captured; empty: unknown.
  std::optional<avi::StartTime> Captured(std::int64_t time_ns) const {
    return _starts.Captured(time_ns);
  }
  // Up to where the current file is stored.
  std::int64_t Stored_ns() const;

  void AddTo(Status& status) const;  // sets its state and file, and adds the numbers
  std::string DescribeSync() const;

 private:
  void MakeQueue();
  Code CheckPayload(std::size_t track, Payload const& payload) const;
  bool PassOn(std::size_t track, stream::Packet& packet);
  bool Close();
  bool CloseFile();

  RecorderOptions const& _options;
  Events& _events;
  TrackSet const _tracks;
  Packets const _packets;
  FileStarts _starts;
  Finish const _finish;
  std::unique_ptr<Segments> _segments;  // null when verbatim
  std::unique_ptr<EventGate> _gate;     // null unless event-only
  std::mutex _fileMutex;
  std::unique_ptr<FileWriter> _file;  // null unless verbatim
  std::int64_t _fileEnd_ns = 0;
  std::unique_ptr<stream::PacketQueue> _queue;   // null without a queue
  std::vector<stream::IPort*> _inputs;           // by number in the file
  std::vector<std::atomic<unsigned>> _sequence;  // next packet number, by track

  std::atomic<bool> _ending{false}, _failed{false};
  std::mutex _endMutex;
  bool _ended = false;
};

}  // namespace kestro::record
