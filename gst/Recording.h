// What kestroavisink records: its tracks, the recorder, and buffers that wait for it to be opened.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <shared_mutex>

#include "Messages.h"
#include "Settings.h"
#include "Track.h"

namespace kestro::gst {

// The recorder is opened when the caps of all pads are known, or when buffers have waited for that
// too long. When caps change, or pads come and go, the next file has the new tracks.
//
// Any thread may call any function. Actions and Status take no lock and never wait for the storage,
// so that they may be called for a message.
class Recording {
 public:
  using Buffer = std::unique_ptr<GstBuffer, void (*)(GstBuffer*)>;

  explicit Recording(GstElement* element) : _messages(element) {}

  Settings& Properties() { return _settings; }

  void Begin() { _messages.Begin(); }  // going to PAUSED
  Track& Add(std::string const& name, record::TrackInfo::Codec codec, bool awaited);
  void Remove(Track const& track);
  bool SetCaps(Track& track, GstCaps* caps, bool live);
  // `await` waits until the element plays. It is called before the recorder is opened, when all is
  // known: the same thread may feed other pads.
  using Await = std::function<GstFlowReturn()>;
  GstFlowReturn Write(Track& track, GstSegment const& segment, Buffer buffer, Await const& await);
  void Restart(Track& track);  // a new segment, or stream
  void Flush(Track& track);
  bool End(Track& track);  // closes the last file when all tracks have ended; false if that fails
  bool Finish();           // closes the last file; Write starts again after this
  void Reset();            // the same, and forgets caps

  // Actions.
  void SplitNow();  // at the first key frame after what was pushed
  void SplitAt(std::int64_t time_ns);
  bool Event(char const* label);
  bool Unprotect(char const* path);
  record::Status Status() const;

 private:
  struct Item {
    Track* track;
    Buffer buffer;
    std::optional<std::int64_t> time_ns;
  };

  std::shared_ptr<record::Recorder> Current() const { return std::atomic_load(&_recorder); }
  bool Jumps(Item const& item) const;
  void Keep(Item item);
  std::int64_t Waiting(Track const& track) const;
  bool MustWait() const;
  void Forget(Track const& track);
  void MeasureRate(Track& track);
  record::Tracks Describe();
  record::Result Open();
  record::Result Push(Item item);
  GstFlowReturn Report(record::Result const& result);

  Settings _settings;
  Messages _messages;
  std::shared_ptr<record::Recorder> _recorder;    // atomic
  std::shared_ptr<record::Status const> _final;   // of the recorder before; atomic
  std::atomic<std::int64_t> _shift_ns{0};         // from running times to the recorder's
  std::atomic<std::int64_t> _end_ns{0};           // of what was pushed
  std::atomic<std::int64_t> _lead_ns{INT64_MIN};  // of the leading track's last buffer
  std::atomic<std::int64_t> _reported_us{0};
  std::atomic<bool> _guessed{false};  // a frame rate, which is not reported yet

  // Shared while buffers are pushed, exclusive for everything else; protects what follows and the
  // tracks.
  std::shared_mutex _mutex;
  std::list<Track> _tracks;
  Track const* _lead = nullptr;  // the recorder's leading track
  bool _changed = true;          // the recorder does not have the current tracks
  bool _flushed = false;
  std::deque<Item> _waiting;
  std::size_t _waitingBytes = 0;
  std::int64_t _waitingSince_us = 0;
};

}  // namespace kestro::gst
