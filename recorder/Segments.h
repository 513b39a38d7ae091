// A recording as one file after another.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recorder/FileWriter.h"
#include "recorder/FinishedFile.h"
#include "recorder/SegmentNames.h"
#include "stream/ISink.h"

namespace kestro::record {

// Takes the packets of all tracks and records them. Each packet goes into one file, and what the
// files hold, one after the other, is the whole recording.
//
// A file begins with a key frame of the leading track: the first video track, or the first audio
// track where there is no video. The other tracks are cut at that frame's time, audio to the
// sample, so that each file by itself is in step. Therefore what reaches beyond the leading track's
// next frame waits for that frame, and a key frame that begins a file waits for the other tracks,
// but neither for long.
//
// A file is as large as asked for when no group of pictures is much larger than those before it; it
// grows on while no key frame comes.
class Segments : public stream::ISink {
 public:
  using Report = std::function<void(Event)>;  // both are called by whoever delivers packets
  using Finish = std::function<void(FinishedFile)>;

  // All but the functions outlive it. Throws Refusal for what the first file's FileWriter refuses.
  // An input for each track stands open.
  Segments(RecorderOptions const& options, Tracks const& tracks, Packets const& packets,
           Report report, Finish finish);
  ~Segments() override;

  stream::IPort& Input(std::size_t track) { return *_tracks[track].input; }
  void Split() { _split = true; }  // at the next key frame; any thread

  // Ends the last file; packets are refused from then on. False when one of the files is not
  // complete.
  bool End();

  struct Progress {
    bool begun = false, failed = false;
    std::string file;
    std::uint64_t files = 0, packets = 0, bytes = 0, skipped = 0;
    std::int64_t duration_ns = 0, skew_ns = 0;
  };
  Progress Now() const;  // any thread

 private:
  using PacketRef = base::Ref<stream::Packet>;
  using Bytes = std::vector<std::uint8_t>;
  struct State {
    stream::IPort* input = nullptr;
    std::int64_t reach_ns = INT64_MIN;  // the end of the last packet that came
    bool begun = false;                 // something was written
    // Of the current file: what its packets last, and how far that is behind their times.
    std::int64_t stored_ns = 0, lag_ns = 0;
    bool fresh = true;  // nothing is in the current file
    Bytes rest;         // audio that does not fill a block
    std::int64_t rest_ns = 0;
    Bytes sets;  // the last parameter sets
  };
  struct Held {
    std::size_t track;
    PacketRef packet;
  };

  bool ReceivePacket(stream::Packet& packet, void* context) override;
  bool Receive(std::size_t track, PacketRef packet);
  void Begin(std::int64_t time_ns);
  bool Advance(bool all);
  bool Lead(PacketRef const& packet, bool due);
  bool Follow(std::size_t track, PacketRef packet);
  bool Due(stream::Packet const& key) const;
  bool OthersReach(std::int64_t time_ns) const;
  PacketRef Cut(Held& held, std::int64_t time_ns);
  bool Switch(std::int64_t time_ns);
  bool Release(std::int64_t time_ns, bool (*goes)(stream::Packet const&, std::int64_t));
  bool Write(std::size_t track, stream::Packet& packet);
  bool WriteAudio(std::size_t track, stream::Packet& packet);
  bool WriteBlocks(std::size_t track, bool last);
  bool WriteVideo(std::size_t track, stream::Packet& packet);
  bool Store(std::size_t track, stream::Packet& packet);
  void Measure(State& state, stream::Packet const& packet, std::int64_t length_ns);
  void BeginFile();
  bool EndFile();

  RecorderOptions const& _options;
  Tracks const& _info;
  Packets const& _packets;
  Report const _report;
  Finish const _finish;
  SegmentNames _names;
  std::vector<State> _tracks;
  std::size_t _lead = 0;
  std::atomic<bool> _split{false};

  std::unique_ptr<FileWriter> _file;  // null when recording is over
  std::deque<PacketRef> _waiting;     // of the leading track, from a file's first key frame on
  std::uint64_t _waitingBytes = 0;
  std::deque<Held> _held;                   // of the others
  bool _begun = false;                      // the leading track's first key frame has come
  std::int64_t _start_ns = 0;               // of the recording
  std::int64_t _next_ns = 0;                // when the leading track's next frame is due
  std::int64_t _begin_ns = 0, _end_ns = 0;  // of the current file
  std::int64_t _others_ns = INT64_MIN;      // how far the other tracks are written
  std::uint64_t _atKey = 0, _largest = 0;   // FileWriter::Written at the last key; between two
  bool _led = false;                        // the leading track has a frame in the current file
  bool _whole = true;                       // every file is

  mutable std::mutex _mutex;  // of what follows
  Progress _progress;
  std::int64_t _before_ns = 0;  // length of the files before
};

}  // namespace kestro::record
