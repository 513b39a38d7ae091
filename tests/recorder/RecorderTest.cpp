// The recorder library, through its public interfaces.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "base/Console.h"
#include "recorder/Recorder.h"
#include "recorder/RecordingLock.h"
#include "recorder/kestro_recorder.h"
#include "support/MemoryStorage.h"
#include "support/Quiet.h"
#include "support/Recording.h"
#include "support/Watchdog.h"

namespace kestro::test {
namespace {

using record::Code;
using record::Event;
using record::Payload;
using record::Recorder;
using record::RecorderOptions;
using record::Status;
using record::TrackInfo;
using testing::HasSubstr;

constexpr std::int64_t kMs = 1000000;

TrackInfo Video(TrackInfo::Codec codec = TrackInfo::kH264) {
  TrackInfo info;
  info.codec = codec;
  info.width = 320;
  info.height = 180;
  info.frameRate = {25, 1};
  return info;
}
TrackInfo Audio(int rate = 8000) {
  TrackInfo info;
  info.codec = TrackInfo::kPcm;
  info.rate = rate;
  info.channels = 1;
  return info;
}
TrackInfo Text() {
  TrackInfo info;
  info.codec = TrackInfo::kText;
  return info;
}

std::string const kSets = kStart + "\x67sps" + kStart + "\x68pps";
std::string Frame(int number, bool key, bool sets = true) {
  std::string const slice = kStart + (key ? "\x65" : "\x41") + std::to_string(number) + "...";
  return key && sets ? kSets + slice : slice;
}

// A recorder over memory with what it reported.
struct Session {
  explicit Session(record::Tracks list) : tracks(std::move(list)) {
    RegisterClasses();
    options.path = "cam-%03d.avi";
    options.storage = &storage;
    options.onEvent = [this](Event const& event) { events.push_back(event); };
  }
  bool Open() {
    recorder = Recorder::Open(options, tracks, why);
    return recorder != nullptr;
  }
  Code Push(std::size_t track, std::string const& data, std::int64_t time_ns, bool key = false) {
    Payload payload;
    payload.data = data.data();
    payload.size = data.size();
    payload.time_ns = time_ns;
    payload.key = key;
    return recorder->Push(track, payload);
  }
  int Count(Event::Kind kind) const {
    return static_cast<int>(std::count_if(events.begin(), events.end(),
                                          [kind](Event const& e) { return e.kind == kind; }));
  }

  base::ConsoleCapture console;
  MemoryStorage storage;
  RecorderOptions options;
  record::Tracks tracks;
  record::Result why;
  std::vector<Event> events;
  std::unique_ptr<Recorder> recorder;
};

std::string Joined(std::vector<std::string> const& list) {
  std::string all;
  for (auto const& part : list) all += part;
  return all;
}

// Memory of the application's: it is overwritten as soon as it is released.
struct Pool {
  struct Buffer {
    Pool* pool;
    std::string bytes;
  };
  Payload Lend(std::string bytes, std::int64_t time_ns, bool key) {
    auto* const buffer = new Buffer{this, std::move(bytes)};
    most = std::max(most, ++out);
    Payload payload;
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
  int most = 0;  // of one pushing thread
};

// Camera, microphone and subtitles on threads of their own, up to six seconds apart, with pieces of
// any length; files are split at random and events are answered. Nothing is lost, every file
// stands by itself.
TEST(Recorder, EveryThreadAtOnce) {
  Watchdog const watchdog("recorder");
  constexpr int kFrames = 500, kBytes = kFrames * 640;
  Session s({Text(), Video(), Audio()});
  Pool pool;
  std::string audio(kBytes, '\0');
  for (std::size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<char>(i * 7 + i / 251);
  std::atomic<int> reached[2] = {{0}, {0}};  // frames, of video and audio
  auto const pace = [&reached](int own, int frame) {
    reached[own] = frame;
    while (frame > reached[1 - own] + 150) std::this_thread::yield();
  };
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
    for (int i = 0; i < kFrames; pace(0, ++i))
      EXPECT_EQ(s.recorder->Push(1, pool.Lend(Frame(i, i % 5 == 0), i * 40 * kMs, i % 5 == 0)),
                Code::kOk);
    reached[0] = 2 * kFrames;
  });
  std::thread microphone([&] {
    std::mt19937 random(3);
    for (int at = 0; at < kBytes; pace(1, at / 640)) {
      int const bytes = std::min<int>(kBytes - at, 2 * (1 + static_cast<int>(random() % 700)));
      EXPECT_EQ(s.Push(2, audio.substr(at, bytes), std::int64_t{at} * kMs / 16), Code::kOk);
      at += bytes;
    }
    reached[1] = 2 * kFrames;
  });
  std::thread texts([&] {
    for (int i = 0; i < kFrames; i += 10) {
      while (reached[0] < i) std::this_thread::yield();
      EXPECT_EQ(s.Push(0, "text " + std::to_string(i), i * 40 * kMs), Code::kOk);
    }
  });
  std::thread operator_([&] {
    std::mt19937 random(4);
    while (!done) {
      if (random() % 8 == 0) s.recorder->Split();
      EXPECT_NE(s.recorder->GetStatus().state, Status::kFailed);
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 3));
    }
  });
  for (auto* thread : {&camera, &microphone, &texts}) thread->join();
  done = true;
  operator_.join();
  EXPECT_TRUE(s.recorder->Stop()) << s.recorder->Stop().text;

  auto const frames = s.storage.Payloads(0);
  ASSERT_EQ(frames.size(), static_cast<std::size_t>(kFrames));
  for (int i = 0; i < kFrames; ++i)
    ASSERT_EQ(frames[static_cast<std::size_t>(i)], Frame(i, i % 5 == 0)) << i;
  EXPECT_TRUE(Joined(s.storage.Payloads(1)) == audio) << "other audio";
  EXPECT_EQ(s.storage.Payloads(2).size(), static_cast<std::size_t>(kFrames / 10));
  EXPECT_EQ(pool.out, 0) << "not released";
  auto const names = s.storage.Names();
  EXPECT_GT(names.size(), 5u);
  EXPECT_EQ(s.events.size(), names.size());
  EXPECT_EQ(answered, static_cast<int>(names.size()));
  for (std::string const& name : names) {
    auto const file = s.storage.Read(name);
    auto const& tracks = file->Tracks();
    EXPECT_TRUE(file->Indexed()) << name;
    EXPECT_EQ(tracks[1].bytes, tracks[0].chunks * 640) << name;
  }
}

// Stopped at any moment, by another thread or an event, while packets come.
TEST(Recorder, StopsAtAnyMoment) {
  Watchdog const watchdog("stopping");
  for (unsigned round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    Session s({Video(), Audio()});
    Pool pool;
    s.options.segments.time_ns = 200 * kMs;
    s.options.queue.enabled = round % 2 == 0;
    bool const byEvent = round % 3 == 0;
    s.options.onEvent = [&](Event const& event) {
      if (!byEvent || event.kind != Event::kClosed) return;
      EXPECT_TRUE(s.recorder->Stop());
    };
    ASSERT_TRUE(s.Open()) << s.why.text;
    std::atomic<int> reached[2] = {{0}, {0}};  // frames
    std::vector<std::thread> threads;
    for (std::size_t track : {0, 1})
      threads.emplace_back([&, track] {
        Code code = Code::kOk;
        for (int i = 0; code == Code::kOk; reached[track] = ++i) {
          while (i > reached[1 - track] + 25) std::this_thread::yield();
          code = track == 0 ? s.recorder->Push(
                                  0, pool.Lend(Frame(i, i % 5 == 0), i * 40 * kMs, i % 5 == 0))
                            : s.Push(1, std::string(640, 'a'), i * 40 * kMs);
        }
        reached[track] = INT32_MAX / 2;
        EXPECT_EQ(code, Code::kEnded);
      });
    std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
    if (!byEvent) threads.emplace_back([&] { EXPECT_TRUE(s.recorder->Stop()); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(s.recorder->Stop()) << s.recorder->GetStatus().lastError;
    EXPECT_EQ(s.recorder->GetStatus().state, Status::kStopped);
    s.recorder.reset();
    EXPECT_EQ(pool.out, 0);
    for (std::string const& name : s.storage.Names()) {
      EXPECT_TRUE(s.storage.Read(name)->Indexed()) << name;
    }
  }
}

// What the format needs is done here.
TEST(Recorder, DoesWhatTheFormatNeeds) {
  Session s({Text(), Video(TrackInfo::kMjpeg), Audio(), Video()});
  s.options.threadless = true;
  ASSERT_TRUE(s.Open()) << s.why.text;
  std::int64_t const begin = 5000 * kMs;  // any clock
  // Before the first key frame: of the audio, 15 ms reach beyond it.
  EXPECT_EQ(s.Push(3, Frame(0, false), begin - 40 * kMs), Code::kOk);
  EXPECT_EQ(s.Push(2, std::string(640, 'e'), begin - 25 * kMs), Code::kOk);
  for (int i = 0; i < 10; ++i) {
    std::int64_t const time = begin + i * 40 * kMs;
    if (i == 5) s.recorder->Split();
    EXPECT_EQ(s.Push(3, Frame(i, i % 5 == 0, i == 0), time, i % 5 == 0), Code::kOk) << i;
    EXPECT_EQ(s.Push(2, std::string(640, 'a'), begin + 15 * kMs + i * 40 * kMs), Code::kOk);
    if (i % 2 == 1) {
      EXPECT_EQ(s.Push(1, "jpeg" + std::to_string(i), time, true), Code::kOk);
    }
    if (i == 2) {
      EXPECT_EQ(s.Push(0, "hello", time), Code::kOk);
    }
  }
  EXPECT_TRUE(s.recorder->Stop());

  auto const file = s.storage.Read("cam-001.avi");
  std::string kinds;
  for (auto const& track : file->Tracks()) kinds += track.codec + " ";
  EXPECT_EQ(kinds, "pcm h264 text mjpeg ") << "those without a number come last";
  auto const blocks = s.storage.Payloads(0);
  EXPECT_EQ(Joined(blocks), std::string(240, 'e') + std::string(6400, 'a'));
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(blocks[i].size(), 640u) << "block " << i;
  auto const frames = s.storage.Payloads(1);
  EXPECT_EQ(frames.size(), 10u);
  EXPECT_EQ(frames[5], kSets + Frame(5, true, false)) << "the last sets begin a file";
  EXPECT_EQ(s.storage.Payloads(3).size(), 5u);
  EXPECT_EQ(s.recorder->GetStatus().skipped, 1u);
  EXPECT_EQ(s.Count(Event::kOpened), 2);
  EXPECT_EQ(s.Count(Event::kClosed), 2);
}

// Audio that begins late is preceded by silence; how far tracks come apart is seen.
TEST(Recorder, LateAndMissingAudio) {
  Session s({Video(), Audio()});
  s.options.threadless = true;
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (int i = 0; i < 50; ++i) {
    std::int64_t const time = i * 40 * kMs;
    EXPECT_EQ(s.Push(0, Frame(i, i == 0), time, i == 0), Code::kOk);
    if (i < 5 || i == 20) continue;
    EXPECT_EQ(s.Push(1, std::string(640, 'a'), time), Code::kOk);
  }
  EXPECT_EQ(s.recorder->GetStatus().skew_ns, 40 * kMs) << "a block is missing";
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(Joined(s.storage.Payloads(1)), std::string(5 * 640, '\0') + std::string(44 * 640, 'a'));
}

// Without video any block begins a file.
TEST(Recorder, AudioAlone) {
  Session s({Audio()});
  s.options.threadless = true;
  s.options.segments.time_ns = 500 * kMs;
  ASSERT_TRUE(s.Open()) << s.why.text;
  std::string all;
  for (int i = 0; i < 100; ++i) {
    std::string const piece(400, static_cast<char>(i));  // 25 ms
    EXPECT_EQ(s.Push(0, piece, i * 25 * kMs), Code::kOk) << i;
    all += piece;
  }
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(Joined(s.storage.Payloads(0)), all);
  EXPECT_EQ(s.storage.Names().size(), 5u);
  EXPECT_EQ(s.storage.Read("cam-002.avi")->Tracks()[0].chunks, 13u);
}

// Threadless: nothing happens elsewhere, and a clock of one's own gives the times.
TEST(Recorder, WorksWithoutThreads) {
  auto const threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  Session s({Video()});
  std::int64_t now = 0;
  int nested = 0;
  s.options.threadless = true;
  s.options.segments.time_ns = 1000 * kMs;
  s.options.sync.mode = record::SyncOptions::kCallback;
  s.options.clock = [&now] { return now; };
  auto const before = threads();
  s.options.onEvent = [&](Event const& event) {
    EXPECT_EQ(threads(), before);
    if (event.kind == Event::kOpened)
      nested += s.Push(0, Frame(-1, false), Payload::kNow) == Code::kOk;
  };
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (int i = 0; i < 100; ++i, now += 40 * kMs)
    EXPECT_EQ(s.Push(0, Frame(i, i % 25 == 0), Payload::kNow, i % 25 == 0), Code::kOk);
  EXPECT_THAT(s.storage.Names(), testing::Contains("cam-004.avi.sync"));
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(nested, 4);
  EXPECT_THAT(s.storage.Names(),
              testing::ElementsAre("cam-001.avi", "cam-002.avi", "cam-003.avi", "cam-004.avi"));
}

// Each file gets an index after the data, too, or says why not and is complete all the same.
TEST(Recorder, MakesOrdinaryFiles) {
  struct {
    bool ordinary;
    base::uint64 free;
    int notes;
  } const table[] = {{true, UINT64_MAX, 0}, {true, 300, 4}, {false, UINT64_MAX, 0}};
  for (auto const& row : table) {
    SCOPED_TRACE(testing::Message() << row.ordinary << " " << row.free);
    Session s({Video()});
    s.options.sync.mode = record::SyncOptions::kInPlace;
    s.options.sync.reserve_ns = 1000 * kMs;
    s.options.sync.ordinary = row.ordinary;
    s.options.segments.time_ns = 1000 * kMs;
    s.storage.free = row.free;
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 100; ++i)
      EXPECT_EQ(s.Push(0, Frame(i, i % 25 == 0), i * 40 * kMs, i % 25 == 0), Code::kOk);
    EXPECT_TRUE(s.recorder->Stop());
    EXPECT_EQ(s.Count(Event::kNote), row.notes);
    EXPECT_EQ(s.storage.Names().size(), 4u);
    for (std::string const& name : s.storage.Names()) {
      auto const file = s.storage.Read(name);
      avi::Chunk const& last = file->Tree().back();
      EXPECT_EQ(last.id == base::Convert4("idx1"), row.ordinary && row.notes == 0) << name;
      EXPECT_EQ(file->Tree()[0].end, file->Size()) << name;
      EXPECT_EQ(file->Tracks()[0].chunks, 25u) << name;
    }
  }
}

// A side file that cannot be made costs the recording nothing.
TEST(Recorder, SideFileRefused) {
  Session s({Video()});
  s.options.threadless = true;
  s.options.sync.mode = record::SyncOptions::kCallback;
  s.storage.refused = ".sync";
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(s.Push(0, Frame(i, i == 0), i * 40 * kMs, i == 0), Code::kOk) << i;
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_THAT(s.recorder->GetStatus().lastError, HasSubstr("Permission denied"));
  EXPECT_EQ(s.storage.Payloads(0).size(), 100u);
}

// A device that is full, or holds still: buffers of the application's are not kept for long.
TEST(Recorder, FullAndSlowDevices) {
  Session s({Video()});
  Pool pool;
  s.storage.capacity = 3000000;
  ASSERT_TRUE(s.Open()) << s.why.text;
  Code code = Code::kOk;
  int pushed = 0;
  for (; code == Code::kOk && pushed < 1000; ++pushed)
    code = s.recorder->Push(
        0, pool.Lend(Frame(pushed, true) + std::string(20000, 'v'), pushed * 40 * kMs, true));
  EXPECT_EQ(code, Code::kIo);
  auto const result = s.recorder->Stop();
  EXPECT_EQ(result.code, Code::kIo);
  EXPECT_THAT(result.text, HasSubstr("No space left"));
  EXPECT_EQ(s.recorder->GetStatus().state, Status::kFailed);
  EXPECT_EQ(pool.out, 0);
  EXPECT_LE(pool.most, 5) << "one pushed and four held";
  auto const file = s.storage.Read("cam-001.avi");
  EXPECT_TRUE(file->Indexed());
  EXPECT_GT(file->Tracks()[0].chunks, 100u);
  EXPECT_EQ(s.Count(Event::kClosed), 1);
}

// One recorder for a pattern in a folder; a lock ends with its process.
TEST(Recorder, OneForAPattern) {
  std::string const folder = NewFolder();
  Session s({Video()}), t({Video()});
  for (Session* session : {&s, &t}) {
    session->options.storage = nullptr;
    session->options.path = folder + "/cam-%03d.avi";
  }
  std::ofstream(folder + "/.cam-%03d.avi.lock") << "left behind";
  EXPECT_TRUE(s.Open()) << s.why.text;
  EXPECT_FALSE(t.Open());
  EXPECT_EQ(t.why.code, Code::kBusy);
  t.options.path = folder + "/other.avi";
  EXPECT_TRUE(t.Open()) << t.why.text;
  s.recorder.reset();
  t.recorder.reset();
  EXPECT_TRUE(std::filesystem::is_empty(folder));

  pid_t const child = fork();
  if (child == 0) {
    record::RecordingLock lock;
    _exit(lock.Take(s.options.path) ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(s.Open()) << "after a process that died: " << s.why.text;
}

TEST(Recorder, RefusesWhatCannotBe) {
  struct Case {
    char const* name;
    std::function<void(Session&)> spoil;
    Code code;
  };
  using S = Session;
  for (Case const& c : std::initializer_list<Case>{
           {"no tracks", [](S& s) { s.tracks.clear(); }, Code::kInvalid},
           {"no name", [](S& s) { s.options.path = "folder/"; }, Code::kInvalid},
           {"two numbers", [](S& s) { s.options.path = "a%d-%d.avi"; }, Code::kInvalid},
           {"no size", [](S& s) { s.options.segments.size = 0; }, Code::kInvalid},
           {"no interval", [](S& s) { s.options.sync.interval_ns = 1; }, Code::kInvalid},
           {"a property",
            [](S& s) {
              s.options.properties = {{"none", "1"}};
            },
            Code::kInvalid},
           {"strd without video",
            [](S& s) {
              s.tracks = {Audio()};
              s.options.tags.strn = "name";
            },
            Code::kInvalid},
           {"a reserve beyond the file",
            [](S& s) {
              s.options.sync.mode = record::SyncOptions::kInPlace;
              s.options.segments.size = 1000;
            },
            Code::kInvalid},
           {"no rate", [](S& s) { s.tracks[0].frameRate = {}; }, Code::kUnsupported},
           {"no picture", [](S& s) { s.tracks[0].width = 0; }, Code::kUnsupported},
           {"half a sample", [](S& s) { s.tracks[1].bits = 12; }, Code::kUnsupported},
           {"text alone", [](S& s) { s.tracks = {Text()}; }, Code::kUnsupported},
           {"two rates",
            [](S& s) {
              s.tracks[1] = Video();
              s.tracks[1].frameRate = {30, 1};
            },
            Code::kUnsupported},
           {"no plug-in", [](S& s) { s.options.plugin = "/nowhere"; }, Code::kPlugin}}) {
    SCOPED_TRACE(c.name);
    Session s({Video(), Audio()});
    c.spoil(s);
    EXPECT_FALSE(s.Open());
    EXPECT_EQ(s.why.code, c.code) << s.why.text;
    EXPECT_FALSE(s.why.text.empty());
  }

  Session s({Video(), Audio()});
  Pool pool;
  ASSERT_TRUE(s.Open());
  EXPECT_EQ(s.recorder->Push(2, pool.Lend("x", 0, true)), Code::kInvalid) << "track";
  EXPECT_EQ(s.recorder->Push(1, pool.Lend("x", 0, true)), Code::kInvalid) << "half a sample";
  EXPECT_EQ(s.recorder->Push(0, pool.Lend("x", INT64_MAX, true)), Code::kInvalid) << "time";
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(s.recorder->Push(0, pool.Lend("x", 0, true)), Code::kEnded);
  EXPECT_EQ(pool.out, 0);
  EXPECT_TRUE(s.storage.Names().empty()) << "nothing was recorded";
}

// The C interface: structs of other versions, storage of the application's.
TEST(Recorder, InC) {
  RegisterClasses();
  base::ConsoleCapture console;
  MemoryStorage memory;
  kestro_recorder_storage storage = {};
  storage.size = sizeof storage;
  storage.context = &memory;
  storage.open = [](void* context, char const* path, char const* mode, void** file) {
    auto io = static_cast<MemoryStorage*>(context)->Open(path, mode);
    *file = io.release();
    return *file != nullptr ? 0 : -ENOENT;
  };
  storage.close = [](void*, void* file) { delete static_cast<base::IO*>(file); };
  storage.read = [](void*, void* file, std::int64_t at, void* data, std::size_t n) {
    auto* const io = static_cast<base::IO*>(file);
    io->Seek(at, base::IO::kBegin);
    return std::int64_t{io->Read(data, static_cast<unsigned>(n))};
  };
  storage.write = [](void*, void* file, std::int64_t at, void const* data, std::size_t n) {
    auto* const io = static_cast<base::IO*>(file);
    io->Seek(at, base::IO::kBegin);
    return std::int64_t{io->Write(data, static_cast<unsigned>(n))};
  };
  storage.length = [](void*, void* file) {
    return std::int64_t{static_cast<base::IO*>(file)->Size()};
  };
  storage.truncate = [](void*, void* file, std::int64_t n) {
    return static_cast<base::IO*>(file)->Truncate(n) ? 0 : -EIO;
  };
  storage.flush = [](void*, void*) { return 0; };
  storage.remove = [](void* context, char const* path) {
    return static_cast<MemoryStorage*>(context)->Remove(path) ? 0 : -ENOENT;
  };
  storage.exists = [](void* context, char const* path) {
    return int{static_cast<MemoryStorage*>(context)->Exists(path)};
  };

  struct {  // of a newer version
    kestro_recorder_options options;
    std::uint64_t more;
  } newer = {};
  kestro_recorder_options_init(&newer.options, sizeof newer);
  newer.options.path = "c.avi";
  newer.options.storage = &storage;
  newer.options.sync_mode = KESTRO_RECORDER_SYNC_IN_PLACE;
  newer.more = 1;
  EXPECT_EQ(kestro_recorder_new(&newer.options), nullptr) << "asks for something unknown";
  newer.more = 0;
  kestro_recorder* const recorder = kestro_recorder_new(&newer.options);
  ASSERT_NE(recorder, nullptr);

  kestro_recorder_track video = KESTRO_RECORDER_TRACK_INIT;
  video.width = video.height = 64;
  EXPECT_EQ(kestro_recorder_start(recorder), KESTRO_RECORDER_INVALID) << "no tracks";
  video.frame_rate_num = 25;
  EXPECT_EQ(kestro_recorder_add_track(recorder, &video), 0);
  kestro_recorder_payload frame = KESTRO_RECORDER_PAYLOAD_INIT;
  EXPECT_EQ(kestro_recorder_push(recorder, 0, &frame), KESTRO_RECORDER_INVALID) << "not started";
  char text[64];
  ASSERT_EQ(kestro_recorder_start(recorder), KESTRO_RECORDER_OK)
      << (kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_RESULT, text, sizeof text), text);
  EXPECT_EQ(kestro_recorder_add_track(recorder, &video), KESTRO_RECORDER_INVALID) << "too late";
  for (int i = 0; i < 50; ++i) {
    std::string const data = Frame(i, i % 5 == 0);
    frame.data = data.data();
    frame.data_size = data.size();
    frame.time_ns = i * 40 * kMs;
    frame.key = i % 5 == 0;
    EXPECT_EQ(kestro_recorder_push(recorder, 0, &frame), KESTRO_RECORDER_OK) << i;
  }
  EXPECT_EQ(kestro_recorder_stop(recorder), KESTRO_RECORDER_OK);
  EXPECT_EQ(kestro_recorder_push(recorder, 0, &frame), KESTRO_RECORDER_ENDED);
  struct {
    kestro_recorder_status status;
    std::uint64_t beyond;
  } older = {KESTRO_RECORDER_STATUS_INIT, 7};
  older.status.size = offsetof(kestro_recorder_status, bytes);
  EXPECT_EQ(kestro_recorder_get_status(recorder, &older.status), KESTRO_RECORDER_OK);
  EXPECT_EQ(older.status.packets, 50u);
  EXPECT_EQ(older.status.bytes, 0u) << "unknown to the caller";
  EXPECT_EQ(kestro_recorder_get_text(recorder, KESTRO_RECORDER_TEXT_FILE, text, 3), 5u);
  EXPECT_STREQ(text, "c.");
  kestro_recorder_free(recorder);
  EXPECT_EQ(memory.Payloads(0).size(), 50u);
  for (int code = 0; code >= KESTRO_RECORDER_MEMORY; --code)
    EXPECT_STRNE(kestro_recorder_code_text(code), kestro_recorder_code_text(1)) << code;
}

}  // namespace
}  // namespace kestro::test
