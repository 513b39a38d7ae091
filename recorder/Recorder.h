// Recording for programs: tracks and packets in, AVI files out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/Types.h"
#include "recorder/RecorderOptions.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

enum class Code {
  kOk,
  kInvalid,      // options or a call that cannot be
  kUnsupported,  // tracks that cannot be recorded
  kIo,           // a file that cannot be written
  kBusy,         // another recorder writes files of this name there
  kPlugin,       // the plug-in is not there, or lacks something
  kEnded,        // recording has been stopped
  kMemory,
};

// What an operation has come to. The text is one line for people, empty for kOk.
struct [[nodiscard]] Result {
  Code code = Code::kOk;
  std::string text;
  explicit operator bool() const { return code == Code::kOk; }
};

// A payload: an access unit, a JPEG picture, any amount of audio, a text.
struct Payload {
  static constexpr std::int64_t kNow = INT64_MIN;

  void const* data = nullptr;
  std::size_t size = 0;
  std::int64_t time_ns =
      kNow;  // of presentation, by one clock for all tracks; kNow: by the recorder's
  std::int64_t duration_ns = 0;  // 0: by frame rate, or number of samples
  bool key = false;              // H.264 and HEVC: decoding can begin here
  // Null: the bytes are copied before Push returns. Otherwise they stay as they are until this is
  // called, once, on any thread, whatever Push returns.
  void (*release)(void* context) = nullptr;
  void* context = nullptr;
};

struct Status {
  enum State {
    kWaiting,  // for the first key frame
    kRecording,
    kFailed,  // packets are refused
    kStopped,
  } state = kWaiting;
  std::string file;                                 // the current one, or the last
  std::uint64_t files = 0, packets = 0, bytes = 0;  // begun; stored; of payload stored
  std::int64_t duration_ns = 0;                     // recorded so far
  // How far the tracks of the current file have come apart: what is stored has no times but those
  // that follow from counting frames and samples.
  std::int64_t skew_ns = 0;
  std::uint64_t skipped = 0;                     // packets before the first key frame
  std::uint64_t waits = 0, longestWait_us = 0;   // of Push, for room in the queue
  std::uint64_t dropped = 0, droppedGroups = 0;  // packets; groups of pictures
  std::uint64_t warnings = 0;
  std::string lastError;  // or warning; empty for none
};

// Records tracks into one AVI file after another.
//
//   RecorderOptions options;
//   options.path = "/media/card/cam-%05d.avi";
//   options.segments.time_ns = 600'000'000'000;
//   options.sync.mode = SyncOptions::kInPlace;
//   Result why;
//   auto recorder = Recorder::Open(options, tracks, why);      // null: `why` says why not
//   while (...) if (recorder->Push(0, packet) != Code::kOk) break;
//   Result const result = recorder->Stop();
//
// Push may be called from any thread, also from several for one track; the packets of a track come
// in the order of their pushes. Tracks may come up to ten seconds apart. The recording begins with
// the first key frame of the leading track: what other tracks have before it is left out.
//
// What the format needs is done here: tracks that readers do not number come last in the file,
// audio is cut into blocks of one length, a text precedes its frame, and a file's first key frame
// that lacks parameter sets gets the last ones.
//
// A queue takes the packets: a push waits for the storage only when it is full. Payloads with a
// release function are not copied while few are held, so that a camera's pool of buffers is not
// drained, and copied at once beyond that.
//
// When the storage fails, packets are refused and what was recorded stays as whole as the storage
// allows; Stop closes the file. While a recorder lives, no other one can record to the same pattern
// in the same folder; the lock is a hidden file there and ends with the process.
//
// The plug-in is loaded once for a process: from RecorderOptions::plugin, or the environment
// variable KESTRO_PLUGIN_PATH (each a file, or a folder that holds it), or the folder of this
// library, or "kestro" next to it. It prints lines for its developers to standard output; the
// recorder does not redirect them.
class KESTRO_API Recorder {
 public:
  // Nothing is written before the first packet. Null when it cannot be, and then `why` says why.
  // Throws nothing, as all functions here.
  static std::unique_ptr<Recorder> Open(RecorderOptions const& options, Tracks const& tracks,
                                        Result& why);
  ~Recorder();  // stops
  Recorder(Recorder const&) = delete;
  Recorder& operator=(Recorder const&) = delete;

  // `track` counts the tracks given to Open. kEnded after Stop; kIo and so on: the packet is not
  // recorded, the status says why, and so it is with those that follow.
  [[nodiscard]] Code Push(std::size_t track, Payload const& payload);

  // Begins a new file at the next key frame. From any thread.
  void Split();

  // Stores what waits and closes the last file. From any thread, more than once: the result is the
  // same. Not kOk when something that was pushed is missing; the text is the first error.
  Result Stop();

  // A snapshot; waits for nothing but a moment's lock.
  Status GetStatus() const;

  // How the files are synced, in one line for people; empty where they are not.
  std::string DescribeSync() const;

 private:
  class Work;
  explicit Recorder(std::unique_ptr<Work> work);

  std::unique_ptr<Work> _work;
};

}  // namespace kestro::record
