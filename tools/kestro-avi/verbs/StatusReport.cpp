#include "verbs/StatusReport.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "avi/StartTime.h"
#include "cli/Address.h"
#include "cli/Text.h"

namespace kestro::tool {

static constexpr std::size_t kSamples = 6;  // five seconds
static constexpr std::chrono::milliseconds kBetween{900};

Json TracksJson(record::Tracks const& tracks) {
  static constexpr char const* kCodecs[] = {"h264", "hevc", "mjpeg", "pcm", "text"};
  Json list = Json::array();
  for (record::TrackInfo const& info : tracks) {
    Json track{{"number", list.size()},
               {"type", info.IsVideo()   ? "video"
                        : info.IsAudio() ? "audio"
                                         : "text"},
               {"codec", kCodecs[info.codec]},
               {"input", info.name}};
    if (info.IsVideo())
      track.update({{"width", info.width},
                    {"height", info.height},
                    {"frame_rate", info.frameRate.num / info.frameRate.den}});
    if (info.IsAudio()) track.update({{"rate", info.rate}, {"channels", info.channels}});
    list.push_back(std::move(track));
  }
  return list;
}

StatusReport::StatusReport(std::vector<std::string> const& addresses) {
  for (std::string const& address : addresses)
    _inputs.push_back({{"address", Hidden(address)}, {"state", "opening"}, {"losses", 0}});
}

void StatusReport::TakeNews(Notice const& news) {
  static constexpr std::pair<std::string_view, char const*> kStates[] = {
      {"lost", "lost"}, {"back", "open"}, {"gone", "gone"}};
  std::lock_guard lock(_mutex);
  for (auto const& [event, state] : kStates) {
    if (news.event == nullptr || event != news.event) continue;
    for (Json& input : _inputs) {
      if (std::none_of(news.fields.begin(), news.fields.end(), [&](Notice::Field const& field) {
            return field.key == std::string_view("input") && field.text == input["address"];
          }))
        continue;
      input["state"] = state;
      if (event == "lost") input["losses"] = input["losses"].get<unsigned>() + 1;
    }
  }
}

void StatusReport::Begin(std::shared_ptr<record::Recorder> recorder, record::Tracks const& tracks) {
  std::lock_guard lock(_mutex);
  _recorder = std::move(recorder);
  for (Json& input : _inputs) input["state"] = "open";
  _tracks = TracksJson(tracks);
  _stage = kRunning;
}

void StatusReport::ChangeTracks(record::Tracks const& tracks) {
  std::lock_guard lock(_mutex);
  _tracks = TracksJson(tracks);
}

void StatusReport::CountPacket(std::size_t bytes) {
  ++_packets;
  _bytes += bytes;
}

void StatusReport::Finish() {
  std::lock_guard lock(_mutex);
  _stage = kStopping;
}

void StatusReport::End() {
  std::lock_guard lock(_mutex);
  _stage = kStopped;
}

std::shared_ptr<record::Recorder> StatusReport::Recorder() const {
  std::lock_guard lock(_mutex);
  return _recorder;
}

void StatusReport::Sample() {
  std::lock_guard lock(_mutex);
  auto const now = Clock::now();
  if (!_counts.empty() && now - _counts.back().time < kBetween) return;
  _counts.push_back({now, _packets, _bytes});
  if (_counts.size() > kSamples) _counts.pop_front();
}

// Call this and the next function with the lock held.
double StatusReport::PerSecond(std::uint64_t Count::*member) const {
  if (_counts.size() < 2) return 0;
  std::chrono::duration<double> const time = _counts.back().time - _counts.front().time;
  return static_cast<double>(_counts.back().*member - _counts.front().*member) / time.count();
}

char const* StatusReport::State(record::Status const& status) const {
  static constexpr char const* kStates[] = {"waiting", "recording", "failed", "stopped", "idle"};
  if (_stage == kOpening) return "opening";
  if (_stage == kStopped) return "stopped";
  if (_stage == kStopping && status.state != record::Status::kFailed) return "stopping";
  return kStates[status.state];
}

Json StatusReport::Get() const {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::lock_guard lock(_mutex);
  record::Status const status = _recorder != nullptr ? _recorder->GetStatus() : record::Status();
  return {{"version", KESTRO_VERSION},
          {"pid", getpid()},
          {"updated", avi::UtcText(std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec)},
          {"state", State(status)},
          {"inputs", _inputs},
          {"tracks", _tracks},
          {"bits_per_s", std::llround(PerSecond(&Count::bytes) * 8)},
          {"packets_per_s", std::round(PerSecond(&Count::packets) * 10) / 10},
          {"file", status.file},
          {"files", status.files},
          {"packets", status.packets},
          {"bytes", status.bytes},
          {"duration_ms", Ms(status.duration_ns)},
          {"skew_ms", Ms(status.skew_ns)},
          {"waits", status.waits},
          {"longest_wait_ms", status.longestWait_us / 1000},
          {"dropped", status.dropped},
          {"dropped_groups", status.droppedGroups},
          {"events", status.events},
          {"protected_files", status.protectedFiles},
          {"deleted_files", status.deletedFiles},
          {"deleted_bytes", status.deletedBytes},
          {"free", status.free == UINT64_MAX ? Json() : Json(status.free)},
          {"space_waits", status.spaceWaits},
          {"longest_space_wait_ms", status.longestSpaceWait_us / 1000},
          {"warnings", status.warnings},
          {"last_error", status.lastError}};
}

std::string StatusReport::Line() const {
  Json const status = Get();
  std::string line = status["state"];
  std::string const file = status["file"];
  if (file.empty()) return line;
  char rate[48];
  std::snprintf(rate, sizeof rate, ", %.1f Mbit/s",
                static_cast<double>(status["bits_per_s"].get<std::int64_t>()) / 1e6);
  return line + " " + file + rate + ", " +
         Quantity(status["dropped"].get<std::uint64_t>(), "packet") + " dropped";
}

}  // namespace kestro::tool
