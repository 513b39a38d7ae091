// The recorder library: takes the packets of several tracks and writes AVI files.
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
  kInvalid,      // invalid options or arguments
  kUnsupported,  // a track that cannot be recorded
  kIo,           // a file cannot be written
  kBusy,         // another recorder is writing these files
  kPlugin,       // the plug-in is missing or lacks a class or property, or libcrypto is missing
  kEnded,        // the recorder was stopped
  kMemory,
  kFull,  // the limits of RetentionOptions cannot be kept: nothing may be deleted
};

// The outcome of a call. The text is one line for people, empty for kOk.
struct [[nodiscard]] Result {
  Code code = Code::kOk;
  std::string text;
  explicit operator bool() const { return code == Code::kOk; }
};

// The data of one packet: an access unit, a JPEG picture, any amount of audio, or a text.
struct Payload {
  static constexpr std::int64_t kNow = INT64_MIN;

  void const* data = nullptr;
  std::size_t size = 0;
  // Presentation time, on one clock for all tracks; kNow: the recorder's clock is read.
  std::int64_t time_ns = kNow;
  std::int64_t duration_ns = 0;  // 0: from the frame rate or the number of samples
  bool key = false;              // H.264 and HEVC: decoding can start here
  // Null: Push copies the bytes before it returns. Otherwise the caller must leave them unchanged
  // until the recorder calls this function: once, on any thread, whatever Push returns.
  void (*release)(void* context) = nullptr;
  void* context = nullptr;
};

struct Status {
  enum State {
    kWaiting,  // no key frame has come yet
    kRecording,
    kFailed,  // no more packets are accepted
    kStopped,
    kIdle,  // event-only recording waits for an event
  } state = kWaiting;
  std::string file;                      // the current file, or the last one
  std::uint64_t files = 0;               // files started
  std::uint64_t packets = 0, bytes = 0;  // packets stored, and their payload bytes
  std::int64_t duration_ns = 0;          // recorded so far
  // How far the tracks of the current file have drifted apart: the file stores no times, and
  // readers count frames and samples. Single packets that are reordered or late do not count. See
  // SegmentOptions::maxSkew_ns.
  std::int64_t skew_ns = 0;
  std::uint64_t skipped = 0;                     // packets before the first key frame
  std::uint64_t waits = 0, longestWait_us = 0;   // how often and how long Push waited for the queue
  std::uint64_t dropped = 0, droppedGroups = 0;  // packets and groups of pictures dropped
  std::uint64_t warnings = 0;
  std::uint64_t events = 0;  // calls of Recorder::Event that were accepted
  // With limits (RetentionOptions): what was deleted; files with a marker; free bytes when last
  // measured, UINT64_MAX if unknown; how often and how long writing waited for free space.
  std::uint64_t deletedFiles = 0, deletedBytes = 0, protectedFiles = 0, free = UINT64_MAX;
  std::uint64_t spaceWaits = 0, longestSpaceWait_us = 0;
  std::string lastError;  // the last error or warning; empty when there was none
};

// Records tracks into one AVI file after another.
//
//   RecorderOptions options;
//   options.path = "/media/card/cam-%05d.avi";
//   options.segments.time_ns = 600'000'000'000;
//   options.sync.mode = SyncOptions::kInPlace;
//   Result why;
//   auto recorder = Recorder::Open(options, tracks, why);      // null on failure, see `why`
//   while (...) if (recorder->Push(0, packet) != Code::kOk) break;
//   Result const result = recorder->Stop();
//
// Push may be called from any thread, and from several threads for the same track; a track's
// packets are stored in the order in which they were pushed. Tracks may arrive up to ten seconds
// apart. The recording starts with the first key frame of the leading track; earlier packets of
// other tracks are skipped.
//
// The recorder prepares the packets as the format requires: tracks that readers do not number come
// last in the file, audio is cut into blocks of equal length, a text precedes its frame, start
// codes get four bytes, and the first key frame of a file gets the last parameter sets when it has
// none.
//
// Packets go into a queue: Push waits only when the queue is full. A payload with a release
// function is used in place while few such payloads are held, and copied otherwise, so that the
// queue does not use up a camera's buffers.
//
// When the storage fails, Push accepts no more packets; what was recorded stays readable as far as
// the storage allows, and Stop closes the file. Two recorders cannot record to the same pattern in
// the same folder at the same time: the first holds a lock, a hidden file there, which ends with
// its process.
//
// The plug-in is loaded once per process: from RecorderOptions::plugin, or from the environment
// variable KESTRO_PLUGIN_PATH (each a file, or the folder that contains it), or from the folder of
// this library, or from "kestro" next to it. The plug-in prints debug lines to standard output; the
// recorder does not redirect them.
class KESTRO_API Recorder {
 public:
  // Returns null on failure and sets `why`. Nothing is written before the first packet. No function
  // of this class throws.
  static std::unique_ptr<Recorder> Open(RecorderOptions const& options, Tracks const& tracks,
                                        Result& why);
  ~Recorder();  // calls Stop
  Recorder(Recorder const&) = delete;
  Recorder& operator=(Recorder const&) = delete;

  // `track` is the index in the tracks given to Open. Returns kEnded after Stop. After any other
  // error, such as kIo, this packet and all later ones are not recorded; see GetStatus for the
  // reason.
  [[nodiscard]] Code Push(std::size_t track, Payload const& payload);

  // Starts a new file at the next key frame, or at the first one from a time on. Several times may
  // be pending. May be called from any thread.
  void Split();
  void SplitAt(std::int64_t time_ns);

  // Something has happened, such as a crash: protects all files with packets from `before_ns`
  // before the end of the latest packet to `after_ns` after it, also those to come, from being
  // deleted. For event-only recording, see EventOptions, this records that time. Without times,
  // those of the EventOptions are used. Events that overlap extend each other.
  //
  // The label is UTF-8, at most 200 bytes of it are used. It is written to a marker next to each
  // file, FILE.keep, on the recorder's own thread; kProtected is reported when the marker is on the
  // storage. kInvalid: the times are negative or longer than a day, or the recording is verbatim.
  // May be called from any thread, and from onEvent.
  Code Event(std::string const& label);
  Code Event(std::string const& label, std::int64_t before_ns, std::int64_t after_ns);

  // Removes the marker of a file of this recorder's pattern, so that it may be deleted. Files to
  // come remain protected. A name alone is one in the folder of the recording. May be called from
  // any thread, and from onEvent.
  Result Unprotect(std::string const& file);

  // Closes the file, and records other tracks from now on: when the source has changed, or is gone.
  // The next file starts with their first key frame. Times must go on from those before. Without
  // tracks, packets are refused until the next call; the same is true after a failure. Must not be
  // called from onEvent, nor while another thread pushes: its packet is refused with kInvalid.
  Result ChangeTracks(Tracks const& tracks);

  // Stores the packets that are still queued and closes the last file. May be called from any
  // thread and more than once; every call returns the same result. Not kOk when a pushed packet is
  // missing from the files; the text is then the first error.
  Result Stop();

  // A snapshot. Takes a lock for a moment, and never waits for the storage.
  Status GetStatus() const;

  // How the files are synced, in one line for people; empty when they are not.
  std::string DescribeSync() const;

 private:
  class Work;
  explicit Recorder(std::unique_ptr<Work> work);

  std::unique_ptr<Work> _work;
};

}  // namespace kestro::record
