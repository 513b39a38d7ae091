// Splits a recording into files.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "recorder/FileStarts.h"
#include "recorder/FileWriter.h"
#include "recorder/FinishedFile.h"
#include "recorder/Retention.h"
#include "recorder/SegmentNames.h"
#include "recorder/TrackFormatter.h"
#include "stream/ISink.h"

namespace kestro::record {

// Takes the packets of all tracks and records them. Each packet goes into one file; played one
// after the other, the files are the whole recording.
//
// A file starts with a key frame of the leading track: the first video track or, without video, the
// first audio track. The other tracks are cut at that frame's time, audio to the sample, so that
// the tracks of each file are in sync. For this, packets of other tracks that end after the leading
// track's next frame wait for that frame, and a key frame that starts a file waits for the other
// tracks; both waits are limited.
//
// A file stays within the requested size unless a group of pictures is much larger than those
// before it. It keeps growing while no key frame comes.
class Segments : public stream::ISink {
 public:
  using Report = std::function<void(Event)>;  // both are called on the thread that delivers packets
  using Finish = std::function<void(FinishedFile)>;

  // Options, tracks, packets, starts and names must outlive the object. Throws Refusal when the
  // FileWriter of the first file does. The inputs are open afterwards. `retention`: null without
  // limits.
  Segments(RecorderOptions const& options, Tracks const& tracks, Packets const& packets,
           FileStarts& starts, SegmentNames& names, Retention* retention, Report report,
           Finish finish);
  ~Segments() override;

  std::size_t Lead() const { return _lead; }
  stream::IPort& Input(std::size_t track) { return *_tracks[track].input; }
  void SplitAt(std::int64_t time_ns);  // at the first key frame from this time on; any thread

  // Ends the file. The next one begins with the next key frame of the leading track, whatever its
  // time. Called on the thread that delivers packets. False when the file is incomplete; no packets
  // are accepted then.
  bool Suspend();
  // Takes the parameter sets of a key frame that is left out while suspended. Called there, too.
  void TakeParameterSets(std::size_t track, stream::Packet const& key) {
    _formatter.TakeParameterSets(track, key);
  }
  // Ends the last file; no packets are accepted after this. False when a file is incomplete.
  bool End();

  struct Progress {
    bool begun = false, failed = false;
    std::string file;
    std::uint64_t files = 0, packets = 0, bytes = 0, skipped = 0;
    std::int64_t duration_ns = 0, skew_ns = 0;
    std::int64_t end_ns = INT64_MIN;  // up to where the current file is stored
  };
  Progress GetProgress() const;  // any thread

 private:
  using PacketRef = base::Ref<stream::Packet>;
  struct State {
    stream::IPort* input = nullptr;
    std::int64_t end_ns = INT64_MIN;  // of the packets received so far
  };
  struct Held {
    std::size_t track;
    PacketRef packet;
  };

  bool ReceivePacket(stream::Packet& packet, void* context) override;
  bool Receive(std::size_t track, PacketRef packet);
  bool ReceiveOther(std::size_t track, PacketRef packet);
  void BeginRecording(std::int64_t time_ns);
  bool WriteWaiting(bool all);
  bool WriteLeading(PacketRef const& packet, bool startsFile);
  bool WriteHeld(std::int64_t time_ns, bool (*isDue)(stream::Packet const&, std::int64_t));
  bool StartsFile(stream::Packet const& key) const;
  bool SplitRequested(std::int64_t time_ns) const;
  void DropSplits(std::int64_t time_ns);
  bool TooSkewed() const;
  bool OthersCaughtUp(std::int64_t time_ns) const;
  bool StartNextFile(std::int64_t time_ns);
  bool Write(std::size_t track, stream::Packet& packet);
  bool Store(std::size_t track, stream::Packet& packet);
  void BeginFile(FileStarts::Start const& start);
  std::int64_t NameTime_ns(FileStarts::Start const& start) const;
  bool EndFile(bool splits);
  bool SuspendFile();
  bool Fail();

  RecorderOptions const& _options;
  Tracks const& _info;
  Packets const& _packets;
  FileStarts& _starts;
  Report const _report;
  Finish const _finish;
  SegmentNames& _names;
  Retention* const _retention;
  TrackFormatter _formatter;
  std::vector<State> _tracks;
  std::size_t _lead = 0;
  std::unique_ptr<FileWriter> _file;  // null when recording is over
  std::deque<PacketRef> _waiting;     // leading track: packets from a file's first key frame on
  std::uint64_t _waitingBytes = 0;
  std::deque<Held> _held;                   // packets of the other tracks that wait
  bool _begun = false;                      // the leading track's first key frame has come
  std::int64_t _start_ns = 0;               // of the recording
  std::int64_t _next_ns = 0;                // when the leading track's next frame is due
  std::int64_t _begin_ns = 0, _end_ns = 0;  // of the current file
  std::int64_t _others_ns = INT64_MIN;      // up to where other tracks are written
  std::uint64_t _atKey = 0, _largest = 0;   // FileWriter::Written at the last key; between two
  bool _leadWritten = false;                // the current file has a frame of the leading track
  bool _complete = true;                    // all files so far are

  mutable std::mutex _mutex;       // protects what follows
  std::set<std::int64_t> _splits;  // pending requests
  Progress _progress;
  std::int64_t _before_ns = 0;  // total length of the previous files
};

}  // namespace kestro::record
