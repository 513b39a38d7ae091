// A recorder that writes to memory, and what it reported.
#pragma once

#include <algorithm>

#include "avi/Error.h"
#include "avi/Sha256.h"
#include "base/Console.h"
#include "recorder/Recorder.h"
#include "support/MemoryStorage.h"
#include "support/Recording.h"

namespace kestro::test {

constexpr std::int64_t kMs = 1000000;

inline record::TrackInfo VideoTrack(record::TrackInfo::Codec codec = record::TrackInfo::kH264) {
  record::TrackInfo info;
  info.codec = codec;
  info.width = 320;
  info.height = 180;
  info.frameRate = {25, 1};
  return info;
}
inline record::TrackInfo AudioTrack() {
  record::TrackInfo info;
  info.codec = record::TrackInfo::kPcm;
  info.rate = 8000;
  info.channels = 1;
  return info;
}
inline record::TrackInfo TextTrack() {
  record::TrackInfo info;
  info.codec = record::TrackInfo::kText;
  return info;
}

// A numbered picture; every `gop`-th one is a key frame with parameter sets.
inline std::string Picture(int number, int gop = 5) {
  std::string const payload = std::to_string(number) + "...";
  return number % gop == 0 ? StoredKeyFrame(payload) : StoredFrame(payload);
}

inline bool CanHash() {
  try {
    avi::Sha256 const loaded;
    return true;
  } catch (avi::Error const&) {
    return false;  // no libcrypto
  }
}

struct RecorderSession {
  explicit RecorderSession(record::Tracks list, bool threadless = false) : tracks(std::move(list)) {
    RegisterClasses();
    options.path = "cam-%03d.avi";
    options.threadless = threadless;
    options.storage = &storage;
    options.onEvent = [this](record::Event const& event) { events.push_back(event); };
  }
  bool Open() {
    recorder = record::Recorder::Open(options, tracks, why);
    return recorder != nullptr;
  }
  record::Code Push(std::size_t track, std::string const& data, std::int64_t time_ns,
                    bool key = false) {
    record::Payload payload;
    payload.data = data.data();
    payload.size = data.size();
    payload.time_ns = time_ns;
    payload.key = key;
    return recorder->Push(track, payload);
  }
  // Opens, pushes pictures of 40 ms to track 0 and stops.
  void RecordPictures(int count, int gop) {
    ASSERT_TRUE(Open()) << why.text;
    for (int i = 0; i < count; ++i)
      EXPECT_EQ(Push(0, Picture(i, gop), i * 40 * kMs, i % gop == 0), record::Code::kOk) << i;
    EXPECT_TRUE(recorder->Stop());
  }
  std::string Payload(std::size_t track) const {
    std::string all;
    for (auto const& part : storage.Payloads(track)) all += part;
    return all;
  }
  int Count(record::Event::Kind kind) const {
    return static_cast<int>(std::count_if(
        events.begin(), events.end(), [kind](auto const& event) { return event.kind == kind; }));
  }

  base::ConsoleCapture console;
  MemoryStorage storage;
  record::RecorderOptions options;
  record::Tracks tracks;
  record::Result why;
  std::vector<record::Event> events;
  std::unique_ptr<record::Recorder> recorder;
};

// The application's buffers, each overwritten as soon as it is released.
struct BufferPool {
  struct Buffer {
    BufferPool* pool;
    std::string bytes;
  };
  record::Payload Lend(std::string bytes, std::int64_t time_ns = 0, bool key = true) {
    auto* const buffer = new Buffer{this, std::move(bytes)};
    most = std::max(most, ++out);
    record::Payload payload;
    payload.data = buffer->bytes.data();
    payload.size = buffer->bytes.size();
    payload.time_ns = time_ns;
    payload.key = key;
    payload.context = buffer;
    payload.release = [](void* context) {
      auto* const back = static_cast<Buffer*>(context);
      std::fill(back->bytes.begin(), back->bytes.end(), 'x');
      --back->pool->out;
      delete back;
    };
    return payload;
  }
  std::atomic<int> out{0};
  int most = 0;  // lent at a time, where one thread pushes
};

}  // namespace kestro::test
