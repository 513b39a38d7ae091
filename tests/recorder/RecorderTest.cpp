// The recorder library, through its C++ interface.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "avi/HeadCopy.h"
#include "avi/Sha256.h"
#include "avi/Text.h"
#include "recorder/RecorderSession.h"
#include "recorder/RecordingLock.h"
#include "support/SystemFault.h"

namespace kestro::test {
namespace {

using record::Code;
using record::Event;
using record::Status;
using record::TrackInfo;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

TEST(Recorder, OrdersTracksCutsAudioAndRepeatsParameterSets) {
  RecorderSession s({TextTrack(), VideoTrack(TrackInfo::kMjpeg), AudioTrack(), VideoTrack()}, true);
  ASSERT_TRUE(s.Open()) << s.why.text;
  std::int64_t const begin = 5000 * kMs;  // of whatever clock
  // Before the first key frame; 15 ms of the audio belong to the recording.
  EXPECT_EQ(s.Push(3, Picture(1), begin - 40 * kMs), Code::kOk);
  EXPECT_EQ(s.Push(2, std::string(640, 'e'), begin - 25 * kMs), Code::kOk);
  for (int i = 0; i < 10; ++i) {
    std::int64_t const time = begin + i * 40 * kMs;
    if (i == 5) s.recorder->Split();
    std::string const picture = i == 5 ? kStart + "\x65" + "5..." : Picture(i);  // without sets
    EXPECT_EQ(s.Push(3, picture, time, i % 5 == 0), Code::kOk) << i;
    EXPECT_EQ(s.Push(2, std::string(640, 'a'), time + 15 * kMs), Code::kOk) << i;
    EXPECT_TRUE(i % 2 == 0 || s.Push(1, "jpeg", time, true) == Code::kOk) << i;
    EXPECT_TRUE(i != 2 || s.Push(0, "hello", time) == Code::kOk);
  }
  EXPECT_TRUE(s.recorder->Stop());

  std::string kinds;
  auto const file = s.storage.Read("cam-001.avi");
  for (auto const& track : file->Tracks()) kinds += track.codec + " ";
  EXPECT_EQ(kinds, "pcm h264 text mjpeg ") << "tracks that the demuxer does not play come last";
  auto const blocks = s.storage.Payloads(0);
  EXPECT_EQ(s.Payload(0), std::string(240, 'e') + std::string(6400, 'a'));
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(blocks[i].size(), 640u) << "block " << i;
  auto const frames = s.storage.Payloads(1);
  ASSERT_EQ(frames.size(), 10u);
  EXPECT_EQ(frames[5], Picture(5)) << "a file begins with the latest parameter sets";
  EXPECT_EQ(s.storage.Payloads(3).size(), 5u);
  EXPECT_THAT(s.storage.Text("cam-001.avi"), HasSubstr(std::string("03dc\4\0\0\0jpeg", 12)));
  EXPECT_EQ(s.recorder->GetStatus().skipped, 1u);
  EXPECT_EQ(s.Count(Event::kOpened), 2);
  EXPECT_EQ(s.Count(Event::kClosed), 2);
}

TEST(Recorder, MakesStartCodesLongUpToTheFirstSlice) {
  struct Row {
    char const* name;
    std::string in, out;
  };
  std::string const brief = kStart.substr(1);
  for (Row const& row : {
           Row{"long", kStart + "\x67s" + kStart + "\x65k", kStart + "\x67s" + kStart + "\x65k"},
           Row{"all short", brief + "\x67s" + brief + "\x65k", kStart + "\x67s" + kStart + "\x65k"},
           Row{"slice short", kStart + "\x67s" + brief + "\x65k",
               kStart + "\x67s" + kStart + "\x65k"},
           Row{"after a slice", kStart + "\x65k" + brief + "\x65l",
               kStart + "\x65k" + brief + "\x65l"},
       }) {
    RecorderSession s({VideoTrack()}, true);
    ASSERT_TRUE(s.Open()) << s.why.text;
    EXPECT_EQ(s.Push(0, row.in, 0, true), Code::kOk) << row.name;
    EXPECT_TRUE(s.recorder->Stop()) << row.name;
    EXPECT_EQ(s.Payload(0), row.out) << row.name;
  }
}

// A single missing block is not replaced by silence. A file starts as soon as the audio that lags
// has come.
TEST(Recorder, FillsLateAudioWithSilenceAndReportsMissingAudio) {
  for (int const late : {1, 5}) {
    RecorderSession s({VideoTrack(), AudioTrack()}, true);
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 50; ++i) {
      std::int64_t const time = i * 40 * kMs;
      EXPECT_EQ(s.Push(0, Picture(i), time, i % 5 == 0), Code::kOk) << i;
      if (i < late || i == 20) continue;
      EXPECT_EQ(s.Push(1, std::string(640, 'a'), time), Code::kOk) << i;
    }
    EXPECT_EQ(s.recorder->GetStatus().skew_ns, (late == 1 ? 80 : 40) * kMs) << "a block is missing";
    s.recorder->Split();
    for (int i = 50; i <= 55; ++i)
      EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i == 55), Code::kOk) << i;
    EXPECT_EQ(s.recorder->GetStatus().files, 1u);
    EXPECT_EQ(s.Push(1, std::string(5 * 640, 'b'), 2000 * kMs), Code::kOk);
    EXPECT_EQ(s.recorder->GetStatus().files, 2u);
    EXPECT_TRUE(s.recorder->Stop());
    EXPECT_EQ(s.Payload(1), std::string((late == 1 ? 0 : late) * 640, '\0') +
                                std::string((49 - late) * 640, 'a') + std::string(5 * 640, 'b'));
  }
}

// 100 frames of 40 ms with a key frame every `keys`, and audio on the same clock. `lost`: that many
// frames are missing in the middle; `late`: one frame comes late by this.
TEST(Recorder, StartsAFileWhereTracksDriftApart) {
  struct {
    char const* name;
    int lost = 0, late_ms = 0;
    std::int64_t maxSkew_ms = 200;
    int files = 1;
    char const* said = "";
    bool reordered = false;
    TrackInfo::Codec codec = TrackInfo::kH264;
    int keys = 5;
  } const cases[] = {
      {"in sync"},
      {"a second late once", 0, 1000},
      {"reordered", 0, 0, 200, 1, "", true},
      {"within the limit", 4, 0, 200, 1, "up to 0.160 s apart"},
      {"beyond the limit", 7, 0, 200, 2, "up to 0.280 s apart"},
      {"another limit", 4, 0, 100, 2, "the next file is in sync again"},
      {"beyond the limit without a later key frame", 7, 0, 200, 1, "up to 0.280 s", false,
       TrackInfo::kH264, 60},
      {"no limit", 20, 0, 0, 1, "up to 0.800 s apart"},
      {"motion JPEG", 7, 0, 200, 2, "up to 0.280 s apart", false, TrackInfo::kMjpeg},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RecorderSession s({VideoTrack(c.codec), AudioTrack()}, true);
    s.options.segments.maxSkew_ns = c.maxSkew_ms * kMs;
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 100; ++i) {
      std::int64_t const time = i * 40 * kMs;
      bool const missing = i > 50 && i <= 50 + c.lost;
      static constexpr int kTurn_ms[] = {0, 80, -40, -40, 0};
      std::int64_t const jitter = (c.reordered ? kTurn_ms[i % 5] : i == 33 ? c.late_ms : 0) * kMs;
      EXPECT_TRUE(missing || s.Push(0, Picture(i), time + jitter, i % c.keys == 0) == Code::kOk)
          << i;
      EXPECT_EQ(s.Push(1, std::string(640, 'a'), time), Code::kOk) << i;
    }
    EXPECT_TRUE(s.recorder->Stop());
    EXPECT_EQ(s.Count(Event::kOpened), c.files);
    std::string warnings;
    bool const allKeys = c.codec == TrackInfo::kMjpeg;
    std::vector<std::int64_t> starts;
    for (Event const& event : s.events) {
      if (event.kind == Event::kWarning) {
        warnings += event.text + "\n";
        EXPECT_THAT(event.text, HasSubstr(avi::Seconds(event.duration_ns / kMs) + " apart"));
        EXPECT_THAT(event.text, HasSubstr("most at " + avi::Seconds(event.time_ns / kMs)));
      }
      if (event.kind == Event::kOpened)
        starts.push_back(event.time_ns / kMs % (allKeys ? 40 : 200));
    }
    EXPECT_THAT(warnings, HasSubstr(c.said));
    EXPECT_EQ(warnings.empty(), *c.said == '\0') << warnings;
    EXPECT_EQ(c.files > 1, warnings.find("next file") != std::string::npos) << warnings;
    EXPECT_THAT(starts, testing::Each(0)) << "files start with key frames";
    EXPECT_EQ(s.storage.Payloads(allKeys ? 1 : 0).size(), 100u - static_cast<unsigned>(c.lost));
  }
}

TEST(Recorder, SplitsAtTimesThatAreStillQueued) {
  RecorderSession s({VideoTrack()}, true);
  s.options.segments.time_ns = INT64_MAX;
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (std::int64_t time : {1500, 410, 0, 420, 99999}) s.recorder->SplitAt(time * kMs);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk) << i;
  EXPECT_TRUE(s.recorder->Stop());
  std::vector<std::int64_t> starts;
  for (Event const& event : s.events)
    if (event.kind == Event::kOpened) starts.push_back(event.time_ns / kMs);
  EXPECT_THAT(starts, ElementsAre(0, 600, 1600));
}

TEST(Recorder, ChoosesBlocksThatReadersDoNotSplit) {
  std::pair<int, int> const lengths[] = {
      {10, 1}, {8000, 320}, {25600, 1024}, {25625, 512}, {48000, 960}};
  for (auto const& [rate, length] : lengths)
    EXPECT_EQ(TrackInfo::BlockLength(rate), length) << rate;
}

TEST(Recorder, BeginsAFileWithAnyBlockWhereThereIsNoVideo) {
  RecorderSession s({AudioTrack()}, true);
  s.options.segments.time_ns = 500 * kMs;
  ASSERT_TRUE(s.Open()) << s.why.text;
  std::string all;
  for (int i = 0; i < 100; ++i) {
    std::string const piece(400, static_cast<char>(i));  // 25 ms
    EXPECT_EQ(s.Push(0, piece, i * 25 * kMs), Code::kOk) << i;
    all += piece;
  }
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(s.Payload(0), all);
  EXPECT_EQ(s.storage.Names().size(), 5u);
  EXPECT_EQ(s.storage.Read("cam-002.avi")->Tracks()[0].chunks, 13u);
}

// A source that is lost, comes back with another size, and is lost again before its first packet.
TEST(Recorder, ClosesTheFileWhereTracksChange) {
  for (bool threadless : {false, true}) {
    SCOPED_TRACE(threadless);
    RecorderSession s({VideoTrack(), AudioTrack()}, threadless);
    auto large = VideoTrack(record::TrackInfo::kHevc);
    large.width = 640;
    struct {
      record::Tracks tracks;
      std::size_t track;
      int pictures;
    } const steps[] = {
        {{}, 1, 25}, {{AudioTrack()}, 0, 25}, {{}, 0, 0}, {{VideoTrack()}, 0, 0}, {{large}, 0, 5}};
    ASSERT_TRUE(s.Open()) << s.why.text;
    std::int64_t time_ns = 0;
    for (auto const& step : steps) {
      SCOPED_TRACE(&step - steps);
      bool const first = &step == steps;
      EXPECT_TRUE(first || s.recorder->ChangeTracks(step.tracks));
      EXPECT_EQ(s.Push(2, "no such track", time_ns), Code::kInvalid);
      for (int i = 0; i < step.pictures; ++i, time_ns += 40 * kMs) {
        bool const video = first || step.tracks[0].IsVideo(), audio = first || !video;
        EXPECT_TRUE(!video || s.Push(0, Picture(i), time_ns, i % 5 == 0) == Code::kOk) << i;
        std::string const block(640, 'a');
        EXPECT_TRUE(!audio || s.Push(step.track, block, time_ns) == Code::kOk) << i;
      }
    }
    EXPECT_FALSE(s.recorder->ChangeTracks({TextTrack()})) << "needs video";
    EXPECT_EQ(s.Push(0, "", time_ns), Code::kInvalid);
    EXPECT_TRUE(s.recorder->Stop());
    EXPECT_EQ(s.recorder->ChangeTracks({VideoTrack()}).code, Code::kEnded);
    EXPECT_THAT(s.storage.Names(), ElementsAre("cam-001.avi", "cam-002.avi", "cam-003.avi"));
    EXPECT_EQ(s.storage.Read("cam-001.avi")->Tracks()[1].chunks, 25u);
    EXPECT_EQ(s.storage.Read("cam-002.avi")->Tracks().size(), 1u);
    EXPECT_EQ(s.storage.Read("cam-003.avi")->Tracks()[0].width, 640u);
    auto const status = s.recorder->GetStatus();
    EXPECT_EQ(status.state, record::Status::kStopped);
    EXPECT_EQ(status.files, 3u);
    EXPECT_EQ(status.packets, 25u * 3 + 5);
    EXPECT_EQ(status.duration_ns, 55 * 40 * kMs);
  }
}

TEST(Recorder, ThreadlessStartsNoThreadAndTakesTheGivenClock) {
  auto const threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  RecorderSession s({VideoTrack()}, true);
  std::int64_t now = 0;
  int nested = 0;
  s.options.segments.time_ns = 1000 * kMs;
  s.options.sync.mode = record::SyncOptions::kCallback;
  s.options.clock = [&now] { return now; };
  auto const before = threads();
  s.options.onEvent = [&](Event const& event) {
    EXPECT_EQ(threads(), before);
    if (event.kind == Event::kOpened)
      nested += s.Push(0, Picture(1), record::Payload::kNow) == Code::kOk;
  };
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (int i = 0; i < 100; ++i, now += 40 * kMs)
    EXPECT_EQ(s.Push(0, Picture(i, 25), record::Payload::kNow, i % 25 == 0), Code::kOk) << i;
  EXPECT_THAT(s.storage.Names(), testing::Contains("cam-004.avi.sync"));
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(nested, 4);
  EXPECT_THAT(s.storage.Names(),
              ElementsAre("cam-001.avi", "cam-002.avi", "cam-003.avi", "cam-004.avi"));
}

// Where there is no space for the index after the data, a note says so and the file is complete.
TEST(Recorder, AddsAnIndexAfterTheDataWhereItFits) {
  struct {
    char const* name;
    bool ordinary;
    base::uint64 free;
    int notes;
  } const cases[] = {{"added", true, UINT64_MAX, 0},
                     {"no space", true, 300, 4},
                     {"not wanted", false, UINT64_MAX, 0}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RecorderSession s({VideoTrack(), AudioTrack()});
    s.options.sync.mode = record::SyncOptions::kInPlace;
    s.options.sync.reserve_ns = 1000 * kMs;
    s.options.sync.ordinary = c.ordinary;
    s.options.segments.time_ns = 1000 * kMs;
    s.storage.free = c.free;
    s.RecordPictures(100, 25);
    EXPECT_EQ(s.Count(Event::kNote), c.notes);
    EXPECT_EQ(s.storage.Names().size(), 4u);
    for (std::string const& name : s.storage.Names()) {
      auto const file = s.storage.Read(name);
      bool const added = file->Tree().back().id == base::Convert4("idx1");
      EXPECT_EQ(added, c.ordinary && c.notes == 0) << name;
      EXPECT_EQ(file->Tree()[0].end, file->Size()) << name;
      EXPECT_EQ(file->Tracks()[0].chunks, 25u) << name;
      auto const copy = avi::HeadCopy::Find(file->Reader(), 0, file->Size());
      ASSERT_TRUE(copy) << name;
      std::string head = s.storage.Text(name).substr(0, copy->head.size());
      for (std::size_t const late : {4, 36, 48, 140}) head.replace(late, 4, copy->head, late, 4);
      EXPECT_EQ(head, copy->head) << name << ", but for sizes that are known at the end";
    }
  }
}

TEST(Recorder, WritesAHashNextToEachFile) {
  if (!CanHash()) GTEST_SKIP() << "no libcrypto";
  for (std::string const refused : {"", "cam-002.avi.sha256"}) {
    RecorderSession s({VideoTrack()}, true);
    s.options.hash = true;
    s.options.segments.time_ns = 200 * kMs;
    s.options.sync.mode = record::SyncOptions::kInPlace;
    s.storage.refused = refused;
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 10; ++i)
      EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk) << i;
    EXPECT_TRUE(s.recorder->Stop()) << "also without the hash";
    EXPECT_EQ(s.Count(Event::kWarning), refused.empty() ? 0 : 1) << refused;

    std::string const text = s.storage.Text("cam-001.avi.sha256");
    EXPECT_THAT(text, HasSubstr("\n# 0 4 " + std::to_string(Picture(4).size()) + " ")) << text;
    EXPECT_THAT(text, EndsWith("  cam-001.avi\n"));
    std::string const file = s.storage.Text("cam-001.avi");
    avi::Sha256 hash;
    hash.Add(file.data(), file.size());
    EXPECT_THAT(text, HasSubstr("\n" + hash.Text() + "  ")) << "of the file as it is now";
    hash.Add("abc", 3);
    EXPECT_EQ(hash.Text(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  }
}

TEST(Recorder, GoesOnWithoutASideFile) {
  RecorderSession s({VideoTrack()}, true);
  s.options.sync.mode = record::SyncOptions::kCallback;
  s.storage.refused = ".sync";
  s.RecordPictures(100, 100);
  EXPECT_THAT(s.recorder->GetStatus().lastError, HasSubstr("Permission denied"));
  EXPECT_EQ(s.storage.Payloads(0).size(), 100u);
}

TEST(Recorder, ReportsAFileThatIsGone) {
  RecorderSession s({VideoTrack()}, true);
  s.options.hash = CanHash();
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk) << i;
    EXPECT_TRUE(i != 50 || s.storage.Remove("cam-001.avi"));
  }
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(s.Count(Event::kWarning), 1);
  EXPECT_THAT(s.recorder->GetStatus().lastError, HasSubstr("cam-001.avi: another program deleted"));
  EXPECT_TRUE(s.storage.Names().empty());
}

// Also where files could be deleted, but there are none.
TEST(Recorder, FullDeviceEndsWithACompleteFileAndHoldsFewBuffers) {
  for (bool const limits : {false, true}) {
    SCOPED_TRACE(limits);
    RecorderSession s({VideoTrack()});
    BufferPool pool;
    s.storage.capacity = 3000000;
    if (limits) s.options.retention.keepFiles = 99;
    ASSERT_TRUE(s.Open()) << s.why.text;
    Code code = Code::kOk;
    for (int i = 0; code == Code::kOk && i < 1000; ++i)
      code = s.recorder->Push(0, pool.Lend(Picture(i, 1) + std::string(20000, 'v'), i * 40 * kMs));
    EXPECT_EQ(code, limits ? Code::kFull : Code::kIo);
    auto const result = s.recorder->Stop();
    EXPECT_EQ(result.code, code);
    EXPECT_THAT(result.text, HasSubstr(limits ? "nothing may be deleted" : "No space left"));
    auto const status = s.recorder->GetStatus();
    EXPECT_EQ(status.state, Status::kFailed);
    EXPECT_EQ(status.spaceWaits > 0, limits);
    EXPECT_LT(status.longestSpaceWait_us, 10000000u) << "waited for nothing";
    EXPECT_EQ(pool.out, 0) << "not released";
    EXPECT_LE(pool.most, 5) << "one pushed and four held";
    auto const file = s.storage.Read("cam-001.avi");
    EXPECT_TRUE(file->Indexed());
    EXPECT_GT(file->Tracks()[0].chunks, 100u);
    EXPECT_EQ(s.Count(Event::kClosed), 1);
  }
}

TEST(Recorder, LocksItsFileNamesUntilItOrItsProcessEnds) {
  std::string const folder = NewFolder();
  RecorderSession s({VideoTrack()}), t({VideoTrack()});
  for (RecorderSession* session : {&s, &t}) {
    session->options.storage = nullptr;
    session->options.path = folder + "/cam-%03d.avi";
  }
  std::ofstream(folder + "/.cam-%03d.avi.lock") << "left over";
  EXPECT_TRUE(s.Open()) << s.why.text;
  int const descriptors = Descriptors();
  for (char const* name : {"cam-%03d.avi", "cam-%04N.avi", "cam.avi", "cam-002.avi", "%Y%%.avi"}) {
    t.options.path = folder + "/" + name;
    bool const free = name[0] == '%';
    EXPECT_EQ(t.Open(), free) << name;
    EXPECT_EQ(t.why.code, free ? Code::kOk : Code::kBusy) << name;
    EXPECT_TRUE(free || Descriptors() == descriptors) << name;
  }
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

TEST(Recorder, RefusesWrongOptions) {
  using S = RecorderSession;
  struct {
    char const* name;
    std::function<void(S&)> spoil;
    Code code;
  } const cases[] = {
      {"no tracks", [](S& s) { s.tracks.clear(); }, Code::kInvalid},
      {"no name", [](S& s) { s.options.path = "folder/"; }, Code::kInvalid},
      {"two numbers", [](S& s) { s.options.path = "a%d-%d.avi"; }, Code::kInvalid},
      {"no size", [](S& s) { s.options.segments.size = 0; }, Code::kInvalid},
      {"no interval", [](S& s) { s.options.sync.interval_ns = 1; }, Code::kInvalid},
      {"no memory for events",
       [](S& s) {
         s.options.events.only = true;
         s.options.events.maxBytes = 0;
       },
       Code::kInvalid},
      {"a property",
       [](S& s) {
         s.options.properties.push_back({"none", "1"});
       },
       Code::kInvalid},
      {"strn without video", [](S& s) { s.tracks = {AudioTrack()}, s.options.tags.strn = "name"; },
       Code::kInvalid},
      {"a reserve beyond the file",
       [](S& s) {
         s.options.sync.mode = record::SyncOptions::kInPlace;
         s.options.segments.size = 1000;
       },
       Code::kInvalid},
      {"no rate", [](S& s) { s.tracks[0].frameRate = {}; }, Code::kUnsupported},
      {"huge rate",
       [](S& s) {
         s.tracks[0].frameRate = {INT64_MAX, 2};
       },
       Code::kUnsupported},
      {"no picture", [](S& s) { s.tracks[0].width = TrackInfo().width; }, Code::kUnsupported},
      {"half a sample", [](S& s) { s.tracks[1].bits = 12; }, Code::kUnsupported},
      {"text alone", [](S& s) { s.tracks = {TextTrack()}; }, Code::kUnsupported},
      {"two rates",
       [](S& s) {
         s.tracks[1] = VideoTrack(), s.tracks[1].frameRate = {30, 1};
       },
       Code::kUnsupported},
      {"no plug-in", [](S& s) { s.options.plugin = "/nowhere"; }, Code::kPlugin}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RecorderSession s({VideoTrack(), AudioTrack()});
    c.spoil(s);
    EXPECT_FALSE(s.Open());
    EXPECT_EQ(s.why.code, c.code) << s.why.text;
    EXPECT_FALSE(s.why.text.empty());
  }
}

TEST(Recorder, RefusesWrongPayloadsAndReleasesThem) {
  RecorderSession s({VideoTrack(), AudioTrack()});
  BufferPool pool;
  ASSERT_TRUE(s.Open());
  EXPECT_EQ(s.recorder->Push(2, pool.Lend("x")), Code::kInvalid) << "track";
  EXPECT_EQ(s.recorder->Push(1, pool.Lend("x")), Code::kInvalid) << "half a sample";
  record::Payload none;
  none.size = 4;
  EXPECT_EQ(s.recorder->Push(0, none), Code::kInvalid) << "no data";
  EXPECT_EQ(s.recorder->Push(0, pool.Lend("x", INT64_MAX)), Code::kInvalid) << "time";
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(s.recorder->Push(0, pool.Lend("x")), Code::kEnded);
  EXPECT_EQ(pool.out, 0) << "not released";
  EXPECT_THAT(s.storage.Names(), ElementsAre()) << "nothing was recorded";
  RecorderSession plain({VideoTrack()}, true);
  plain.options.verbatim = true;
  ASSERT_TRUE(plain.Open()) << plain.why.text;
  EXPECT_EQ(plain.Push(0, Picture(0), 80 * kMs, true), Code::kOk);
  EXPECT_EQ(plain.recorder->ChangeTracks(plain.tracks).code, Code::kInvalid) << "one file only";
  EXPECT_TRUE(plain.recorder->Stop());
  EXPECT_EQ(plain.events.back().duration_ns, 120 * kMs);
}

}  // namespace
}  // namespace kestro::test
