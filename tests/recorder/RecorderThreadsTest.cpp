// A recorder that several threads push to, query and stop.
#include <gmock/gmock.h>

#include <random>
#include <thread>

#include "avi/KeepMarker.h"
#include "recorder/RecorderSession.h"
#include "support/Watchdog.h"

namespace kestro::test {
namespace {

using record::Code;
using record::Event;
using record::Status;

// Keeps two pushing threads from running further ahead of each other than each may.
class Pace {
 public:
  Pace(int first, int second) : _ahead{first, second} {}
  void Wait(int own, int frame) {
    _frames[own] = frame;
    while (frame > _frames[1 - own] + _ahead[own]) std::this_thread::yield();
  }
  void Done(int own) { _frames[own] = INT32_MAX / 2; }
  int Of(int track) const { return _frames[track]; }

 private:
  int const _ahead[2];
  std::atomic<int> _frames[2] = {{0}, {0}};
};

// Camera, microphone and subtitles push from their own threads, in pieces of any length, while
// files are split at random and the event handler calls back. The camera is up to six seconds
// ahead, the microphone less than one: no file starts while audio is further ahead.
TEST(RecorderThreads, NothingIsLostAndEveryFileIsComplete) {
  Watchdog const watchdog("recorder");
  constexpr int kFrames = 500, kBytes = kFrames * 640;
  RecorderSession s({TextTrack(), VideoTrack(), AudioTrack()});
  BufferPool pool;
  std::string audio(kBytes, '\0');
  for (std::size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<char>(i * 7 + i / 251);
  Pace pace(150, 20);
  std::atomic<int> answered{0};
  s.options.onEvent = [&](Event const& event) {
    if (event.kind == Event::kOpened) answered += s.recorder->GetStatus().files > 0;
    if (event.kind != Event::kClosed) return;
    EXPECT_TRUE(event.complete) << event.text;
    s.events.push_back(event);
  };
  s.options.segments.time_ns = 700 * kMs;
  ASSERT_TRUE(s.Open()) << s.why.text;
  std::atomic<bool> done{false};
  std::thread camera([&] {
    for (int i = 0; i < kFrames; pace.Wait(0, ++i))
      EXPECT_EQ(s.recorder->Push(1, pool.Lend(Picture(i), i * 40 * kMs, i % 5 == 0)), Code::kOk);
    pace.Done(0);
  });
  std::thread microphone([&] {
    std::mt19937 random(3);
    for (int at = 0; at < kBytes; pace.Wait(1, at / 640)) {
      int const bytes = std::min<int>(kBytes - at, 2 * (1 + static_cast<int>(random() % 700)));
      EXPECT_EQ(s.Push(2, audio.substr(at, bytes), std::int64_t{at} * kMs / 16), Code::kOk);
      at += bytes;
    }
    pace.Done(1);
  });
  std::thread texts([&] {
    for (int i = 0; i < kFrames; i += 10) {
      while (pace.Of(0) < i) std::this_thread::yield();
      EXPECT_EQ(s.Push(0, "text " + std::to_string(i), i * 40 * kMs), Code::kOk);
    }
  });
  std::thread control([&] {
    std::mt19937 random(4);
    while (!done) {
      if (random() % 8 == 0) s.recorder->Split();
      if (random() % 8 == 0) s.recorder->SplitAt(random() % 400 * (50 * kMs));  // past or future
      EXPECT_NE(s.recorder->GetStatus().state, Status::kFailed);
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 3));
    }
  });
  for (auto* thread : {&camera, &microphone, &texts}) thread->join();
  done = true;
  control.join();
  EXPECT_TRUE(s.recorder->Stop()) << s.recorder->Stop().text;

  std::vector<std::string> pictures;
  for (int i = 0; i < kFrames; ++i) pictures.push_back(Picture(i));
  EXPECT_EQ(s.storage.Payloads(0), pictures);
  EXPECT_TRUE(s.Payload(1) == audio) << "other audio";
  EXPECT_EQ(s.storage.Payloads(2).size(), static_cast<std::size_t>(kFrames / 10));
  EXPECT_EQ(pool.out, 0) << "not released";
  auto const names = s.storage.Names();
  EXPECT_GT(names.size(), 5u);
  EXPECT_EQ(s.events.size(), names.size());
  EXPECT_EQ(answered, static_cast<int>(names.size()));
  for (std::string const& name : names) {
    auto const file = s.storage.Read(name);
    EXPECT_TRUE(file->Indexed()) << name;
    EXPECT_EQ(file->Tracks()[1].bytes, file->Tracks()[0].chunks * 640) << name;
  }
}

TEST(RecorderThreads, StopsAtAnyMoment) {
  Watchdog const watchdog("stopping");
  for (unsigned round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    RecorderSession s({VideoTrack(), AudioTrack()});
    BufferPool pool;
    s.options.segments.time_ns = 200 * kMs;
    s.options.queue.enabled = round % 2 == 0;
    bool const byEvent = round % 3 == 0;
    s.options.onEvent = [&](Event const& event) {
      EXPECT_TRUE(!byEvent || event.kind != Event::kClosed || s.recorder->Stop());
    };
    ASSERT_TRUE(s.Open()) << s.why.text;
    Pace pace(25, 25);
    std::vector<std::thread> threads;
    for (int track : {0, 1})
      threads.emplace_back([&, track] {
        Code code = Code::kOk;
        for (int i = 0; code == Code::kOk; pace.Wait(track, ++i))
          code = track == 0 ? s.recorder->Push(0, pool.Lend(Picture(i), i * 40 * kMs, i % 5 == 0))
                            : s.Push(1, std::string(640, 'a'), i * 40 * kMs);
        pace.Done(track);
        EXPECT_EQ(code, Code::kEnded);
      });
    std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
    if (!byEvent) threads.emplace_back([&] { EXPECT_TRUE(s.recorder->Stop()); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(s.recorder->Stop()) << s.recorder->GetStatus().lastError;
    EXPECT_EQ(s.recorder->GetStatus().state, Status::kStopped);
    s.recorder.reset();
    EXPECT_EQ(pool.out, 0) << "not released";
    for (std::string const& name : s.storage.Names())
      EXPECT_TRUE(s.storage.Read(name)->Indexed()) << name;
  }
}

// What a program may call at any time. Returns how many events were accepted.
int CallAtRandom(RecorderSession& s, unsigned seed, std::atomic<bool> const& done) {
  int accepted = 0;
  for (std::mt19937 random(seed); !done;) {
    auto const time = [&random] { return random() % 1000 * kMs; };
    unsigned const what = random() % 32;
    if (what < 4) accepted += s.recorder->Event("event", time(), time()) == Code::kOk;
    if (what == 4) s.recorder->Split();
    EXPECT_TRUE(what != 5 || s.recorder->Unprotect("cam-002.avi"));
    if (what == 6 && random() % 4 == 0) static_cast<void>(s.recorder->ChangeTracks(s.tracks));
    EXPECT_TRUE(what != 7 || s.recorder->GetStatus().state != Status::kFailed);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 200));
  }
  return accepted;
}

// Checks files and markers. Returns how many files there are.
int ExpectWhole(MemoryStorage& storage) {
  int files = 0;
  for (std::string const& name : storage.Names()) {
    if (name.find(".keep") == name.npos) {
      EXPECT_TRUE(storage.Read(name)->Indexed()) << name;
      EXPECT_EQ(storage.Payloads(0, name)[0].find(kStart + "\x67"), 0u) << name;
      ++files;
    } else {
      EXPECT_FALSE(avi::KeepMarker::Parse(storage.Text(name)).events.empty()) << name;
    }
  }
  return files;
}

// Everything from all threads and from the event handler, with and without event-only recording,
// limits and threads.
TEST(RecorderThreads, EventsComeAtAnyMoment) {
  Watchdog const watchdog("events");
  for (unsigned round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    RecorderSession s({VideoTrack(), AudioTrack()});
    BufferPool pool;
    s.options.segments.time_ns = 400 * kMs;
    s.options.events.only = round % 2 == 0;
    s.options.events.maxBytes = round % 4 == 0 ? 4000 : 1 << 20;
    s.options.queue.enabled = round % 3 != 0;
    s.options.threadless = round % 5 == 4;
    if (round % 8 > 3) s.options.retention.keepFiles = 2;
    std::atomic<int> accepted{0}, opened{0}, deleted{0}, incomplete{0};
    s.options.onEvent = [&](Event const& event) {
      opened += event.kind == Event::kOpened;
      deleted += event.kind == Event::kDeleted;
      incomplete += event.kind == Event::kClosed && !event.complete;
      if (event.kind == Event::kOpened) accepted += s.recorder->Event("again", 0, 0) == Code::kOk;
      bool const frees = event.kind == Event::kClosed && opened % 3 == 0;
      EXPECT_TRUE(!frees || s.recorder->Unprotect(event.path));
      EXPECT_TRUE(event.kind != Event::kProtected || s.recorder->GetStatus().events > 0);
    };
    ASSERT_TRUE(s.Open()) << s.why.text;
    std::atomic<bool> done{false};
    Pace pace(25, 25);
    std::vector<std::thread> threads;
    for (int track : {0, 1})
      threads.emplace_back([&, track] {
        Code code = Code::kOk;
        for (int i = 0; code != Code::kEnded; pace.Wait(track, ++i)) {
          code = track == 0 ? s.recorder->Push(0, pool.Lend(Picture(i), i * 40 * kMs, i % 5 == 0))
                            : s.Push(1, std::string(640, 'a'), i * 40 * kMs);
          EXPECT_THAT(code, testing::AnyOf(Code::kOk, Code::kEnded, Code::kInvalid));
        }
        pace.Done(track);
      });
    threads.emplace_back([&] { accepted += CallAtRandom(s, round, done); });
    std::this_thread::sleep_for(std::chrono::milliseconds(5 + round));
    EXPECT_TRUE(s.recorder->Stop()) << s.recorder->GetStatus().lastError;
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(incomplete, 0);
    EXPECT_EQ(s.recorder->GetStatus().events, static_cast<std::uint64_t>(accepted));
    s.recorder.reset();
    EXPECT_EQ(pool.out, 0) << "not released";
    EXPECT_EQ(ExpectWhole(s.storage) + deleted, opened);
  }
}

}  // namespace
}  // namespace kestro::test
