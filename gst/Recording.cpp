#include "Recording.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <tuple>

namespace kestro::gst {

using record::Code;
using record::Recorder;
using record::Result;
using record::TrackInfo;

// Buffers wait for the caps of other pads no longer than this.
static constexpr std::size_t kMostWaitingBytes = 16 << 20;
static constexpr std::int64_t kMostWaiting_us = 3000000, kMostWaiting_ns = 3000000000;
static constexpr int kMeasured = 10;  // frames that show the frame rate
// Waiting buffers beyond this are copied, so that a camera does not run out of buffers.
static constexpr std::size_t kMostHeld = 2;
// A track whose times jump back by more than this starts a new file.
static constexpr std::int64_t kLargestStepBack_ns = 1000000000;

Track& Recording::Add(std::string const& name, TrackInfo::Codec codec, bool awaited) {
  std::unique_lock lock(_mutex);
  return _tracks.emplace_back(name, codec, awaited);
}

void Recording::Remove(Track const& track) {
  std::unique_lock lock(_mutex);
  Forget(track);
  _changed = _changed || track.number;
  if (_lead == &track) _lead = nullptr;
  _tracks.remove_if([&](Track const& one) { return &one == &track; });
}

bool Recording::SetCaps(Track& track, GstCaps* caps, bool live) try {
  auto const info = track.Parse(caps, _settings.FrameRate());
  auto const fields = [](TrackInfo const& of) {
    return std::make_tuple(of.codec, of.width, of.height, of.frameRate, of.rate, of.channels);
  };
  std::unique_lock lock(_mutex);
  track.live = live;
  if (track.caps && fields(*track.caps) == fields(info)) return true;
  track.caps = track.info = info;
  _changed = true;
  return true;
} catch (std::runtime_error const& error) {
  _messages.Fail(Code::kUnsupported, error.what());
  return false;
}

void Recording::Restart(Track& track) {
  std::unique_lock lock(_mutex);
  track.eos = false;
  track.delay_ns.reset();
}

void Recording::Flush(Track& track) {
  Restart(track);
  std::unique_lock lock(_mutex);
  Forget(track);
  _flushed = true;
}

bool Recording::End(Track& track) {
  std::unique_lock lock(_mutex);
  track.eos = true;
  if (!std::all_of(_tracks.begin(), _tracks.end(), [](Track const& one) { return one.eos; }))
    return true;
  lock.unlock();
  return Finish();
}

GstFlowReturn Recording::Write(Track& track, GstSegment const& segment, Buffer buffer,
                               Await const& await) {
  if (_messages.Failed()) return GST_FLOW_ERROR;
  if (!track.caps) return GST_FLOW_NOT_NEGOTIATED;
  if (gst_buffer_get_size(buffer.get()) == 0) return GST_FLOW_OK;
  auto const time_ns = track.Time_ns(segment, buffer.get());
  Item item{&track, std::move(buffer), time_ns};
  std::shared_lock shared(_mutex);
  if (!_changed && !Jumps(item)) {
    Result const result = Push(std::move(item));
    shared.unlock();
    return Report(result);
  }
  shared.unlock();
  std::unique_lock alone(_mutex);
  Keep(std::move(item));
  if (MustWait()) return GST_FLOW_OK;
  alone.unlock();
  if (auto const flow = await(); flow != GST_FLOW_OK) return flow;
  alone.lock();
  Result const result = Open();
  alone.unlock();
  return Report(result);
}

bool Recording::Jumps(Item const& item) const {
  if (!item.time_ns || !Current()) return false;
  return _flushed || *item.time_ns + _shift_ns + kLargestStepBack_ns < item.track->next_ns;
}

void Recording::Keep(Item item) {
  if (Jumps(item)) {
    _shift_ns = _end_ns - *item.time_ns;
    _changed = true;
    _flushed = false;
  }
  if (_waiting.empty()) _waitingSince_us = g_get_monotonic_time();
  if (_waiting.size() >= kMostHeld) item.buffer.reset(gst_buffer_copy_deep(item.buffer.get()));
  _waitingBytes += gst_buffer_get_size(item.buffer.get());
  _waiting.push_back(std::move(item));
}

std::int64_t Recording::Waiting(Track const& track) const {
  return std::count_if(_waiting.begin(), _waiting.end(),
                       [&](Item const& item) { return item.track == &track; });
}

// Whether something about the tracks is not known yet.
bool Recording::MustWait() const {
  if (!_changed) return false;
  auto const& first = _waiting.front().time_ns;
  auto const& last = _waiting.back().time_ns;
  if (_waitingBytes > kMostWaitingBytes || (first && last && *last - *first > kMostWaiting_ns) ||
      g_get_monotonic_time() - _waitingSince_us > kMostWaiting_us)
    return false;
  return std::any_of(_tracks.begin(), _tracks.end(), [this](Track const& track) {
    bool const measures = track.NeedsRate() && Waiting(track) < kMeasured;
    bool const awaits = track.awaited && !Current() && Waiting(track) == 0;
    return !track.eos && (!track.caps || measures || awaits);
  });
}

// Drops the waiting buffers of a track.
void Recording::Forget(Track const& track) {
  auto const rest = std::stable_partition(_waiting.begin(), _waiting.end(),
                                          [&](Item const& item) { return item.track != &track; });
  _waiting.erase(rest, _waiting.end());
}

// From the times of the waiting buffers.
void Recording::MeasureRate(Track& track) {
  std::int64_t first_ns = INT64_MAX, last_ns = INT64_MIN;
  for (Item const& item : _waiting) {
    if (item.track != &track || !item.time_ns) continue;
    first_ns = std::min(first_ns, *item.time_ns);
    last_ns = std::max(last_ns, *item.time_ns);
  }
  auto rate = 25LL;
  if (last_ns > first_ns)
    rate = std::llround(1e9 * double(Waiting(track) - 1) / double(last_ns - first_ns));
  else
    _guessed = true;
  track.info.frameRate = {std::clamp(rate, 1LL, 1000LL), 1};
}

// The tracks to record. Text needs video, and tracks that have ended are left out.
record::Tracks Recording::Describe() {
  record::Tracks infos;
  auto const present = [this](Track const& track) {
    return track.caps && (!track.eos || Waiting(track) > 0);
  };
  bool const video = std::any_of(_tracks.begin(), _tracks.end(), [&](Track const& track) {
    return present(track) && track.info.IsVideo();
  });
  int leading = -1;
  for (Track& track : _tracks) {
    track.number.reset();
    if (!present(track) || (track.info.IsText() && !video)) continue;
    if (track.NeedsRate()) MeasureRate(track);
    int const rank = track.info.IsVideo() ? 2 + track.info.Numbered() : int{track.info.IsAudio()};
    if (rank > leading) _lead = &track;
    leading = std::max(leading, rank);
    track.number = infos.size();
    infos.push_back(track.info);
  }
  return infos;
}

// Opens the recorder or changes its tracks, unless another thread did, and pushes what waits.
Result Recording::Open() {
  Result result;
  auto const recorder = Current();
  bool const changed = std::exchange(_changed, false);
  auto const tracks = changed ? Describe() : record::Tracks();
  if (changed && recorder) {
    result = recorder->ChangeTracks(tracks);
  } else if (changed && tracks.empty()) {
    result = {Code::kUnsupported, "text needs video, from which it takes its times"};
  } else if (changed) {
    auto options = _settings.ToOptions();
    options.onEvent = [this](record::Event const& event) { _messages.Report(event); };
    bool const live =
        std::any_of(_tracks.begin(), _tracks.end(), [](Track const& track) { return track.live; });
    // Other sources can wait for the storage.
    options.queue.enabled = live || options.queue.drop;
    if (!options.queue.enabled && options.cacheBlocks == 0) options.cacheBlocks = 1;
    _shift_ns = _end_ns = 0;
    _lead_ns = INT64_MIN;
    _flushed = false;
    for (Track& track : _tracks) track.next_ns = 0;
    std::shared_ptr<Recorder> made = Recorder::Open(options, tracks, result);
    std::atomic_store(&_recorder, std::move(made));
  }
  for (; result && !_waiting.empty(); _waiting.pop_front())
    result = Push(std::move(_waiting.front()));
  _waitingBytes = 0;
  return result;
}

namespace {
// A buffer that the recorder uses in place.
struct Borrowed {
  explicit Borrowed(Recording::Buffer of) : buffer(std::move(of)) {
    mapped = gst_buffer_map(buffer.get(), &map, GST_MAP_READ);
  }
  ~Borrowed() {
    if (mapped) gst_buffer_unmap(buffer.get(), &map);
  }
  Recording::Buffer const buffer;
  GstMapInfo map{};
  bool mapped;
};
}  // namespace

Result Recording::Push(Item item) {
  Track& track = *item.track;
  auto const recorder = Current();
  if (!track.number || !recorder) return {};
  auto borrowed = std::make_unique<Borrowed>(std::move(item.buffer));
  if (!borrowed->mapped) return {Code::kMemory, track.info.name + ": a buffer cannot be read"};
  record::Payload payload;
  payload.data = borrowed->map.data;
  payload.size = borrowed->map.size;
  payload.key = !GST_BUFFER_FLAG_IS_SET(borrowed->buffer.get(), GST_BUFFER_FLAG_DELTA_UNIT);
  while (track.info.IsText() && payload.size > 0 && borrowed->map.data[payload.size - 1] == 0)
    --payload.size;
  payload.time_ns = item.time_ns ? *item.time_ns + _shift_ns : track.next_ns;
  track.next_ns = payload.time_ns + track.Duration_ns(payload.size);
  if (track.next_ns > _end_ns) _end_ns = track.next_ns;
  if (&track == _lead) _lead_ns = payload.time_ns;
  payload.context = borrowed.release();
  payload.release = [](void* context) { delete static_cast<Borrowed*>(context); };
  Code const code = recorder->Push(*track.number, payload);
  if (code == Code::kOk) return {};
  std::string const reason = recorder->GetStatus().lastError;
  return {code, reason.empty() ? track.info.name + ": a buffer was refused" : reason};
}

bool Recording::Finish() {
  Result result;
  std::unique_lock lock(_mutex);
  if (!_waiting.empty() && !_messages.Failed()) result = Open();
  auto recorder = Current();
  if (recorder) {
    Result const stopped = recorder->Stop();
    if (result) result = stopped;
    std::atomic_store(&_final, std::make_shared<record::Status const>(recorder->GetStatus()));
    std::atomic_store(&_recorder, {});
    // Its lock on the files ends with it, and actions use it for another moment.
    while (recorder.use_count() > 1) g_usleep(100);
    recorder.reset();
  }
  _waiting.clear();
  _waitingBytes = 0;
  _changed = true;
  lock.unlock();
  _messages.ReportQueue(Status());
  return Report(result) == GST_FLOW_OK;
}

void Recording::Reset() {
  Finish();
  std::unique_lock lock(_mutex);
  for (Track& track : _tracks) {
    if (!track.info.IsText()) track.caps.reset();
    track.eos = false;
  }
}

// Posts what there is to post; at most twice a second about the queue.
GstFlowReturn Recording::Report(Result const& result) {
  constexpr std::int64_t kInterval_us = 500000;
  if (!result) _messages.Fail(result.code, result.text);
  if (_guessed.exchange(false))
    _messages.Warn("The frame rate is unknown, 25 fps is used; set the property frame-rate.");
  std::int64_t const now_us = g_get_monotonic_time();
  auto const recorder = Current();
  if (recorder && now_us - _reported_us > kInterval_us) {
    _reported_us = now_us;
    _messages.ReportQueue(recorder->GetStatus());
  }
  return _messages.Failed() ? GST_FLOW_ERROR : GST_FLOW_OK;
}

// Packets may wait in the recorder's queue, where Recorder::Split would split earlier.
void Recording::SplitNow() {
  constexpr std::int64_t kAfter_ns = 10000;  // more than the recorder takes for rounding
  if (_lead_ns != INT64_MIN) SplitAt(_lead_ns - _shift_ns + kAfter_ns);
}

void Recording::SplitAt(std::int64_t time_ns) {
  if (auto const recorder = Current()) recorder->SplitAt(time_ns + _shift_ns);
}

bool Recording::Event(char const* label) {
  auto const recorder = Current();
  std::string const text = label != nullptr ? label : "";
  if (!recorder || recorder->Event(text) != Code::kOk) return false;
  _messages.Accepted(text);
  return true;
}

bool Recording::Unprotect(char const* path) {
  auto const recorder = Current();
  return recorder && path != nullptr && recorder->Unprotect(path);
}

record::Status Recording::Status() const {
  auto const recorder = Current();
  auto const before = std::atomic_load(&_final);
  return recorder ? recorder->GetStatus() : before ? *before : record::Status();
}

}  // namespace kestro::gst
