// Events: the files that they protect, and event-only recording.
#include <gmock/gmock.h>
#include <malloc.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "avi/KeepMarker.h"
#include "recorder/Events.h"
#include "recorder/RecorderSession.h"
#include "support/Watchdog.h"

namespace kestro::test {
namespace {

using avi::KeepMarker;
using record::Code;
using record::Event;
using record::Status;
using testing::HasSubstr;

// Which files have a marker, such as "2 3".
std::string Marked(RecorderSession const& s) {
  std::string marked;
  for (int i = 1; i < 10; ++i)
    if (s.storage.File("cam-00" + std::to_string(i) + ".avi.keep") != nullptr)
      marked += (marked.empty() ? "" : " ") + std::to_string(i);
  return marked;
}

// Five files of a second each. An event comes after a number of frames of 40 ms.
TEST(Events, MarkTheFilesOfTheirTime) {
  struct Happens {
    int after_frames;
    std::int64_t before_ms, after_ms;
  };
  struct {
    char const* name;
    std::vector<Happens> events;
    char const* marked;
    char const* markedAtOnce;
    char const* labels = "";  // of the first marked file
    bool protect = true;
  } const cases[] = {
      {"within a file", {{40, 200, 200}}, "2", "2", "a "},
      {"a moment", {{40, 0, 0}}, "2", "2", "a "},
      {"at the end of a file", {{50, 0, 0}}, "2", "2", "a "},
      {"from the start of a file", {{75, 1000, 0}}, "3", "3", "a "},
      {"from the frame before that", {{75, 1001, 0}}, "2 3", "2 3", "a "},
      {"to the end of a file", {{60, 0, 600}}, "3", "3", "a "},
      {"to the frame after that", {{60, 0, 601}}, "3 4", "3", "a "},
      {"two files back, one on", {{60, 2000, 1000}}, "1 2 3 4", "1 2 3", "a "},
      {"before the first packet", {{0, 5000, 1500}}, "1 2", "1", "a "},
      {"before the first packet, for no time", {{0, 0, 0}}, "", "", ""},
      {"after the last one", {{125, 100, 60000}}, "5", "5", "a "},
      {"twice in a file", {{30, 0, 0}, {45, 0, 0}}, "2", "2", "a b "},
      {"overlapping", {{30, 0, 1000}, {60, 100, 1000}}, "2 3 4", "2 3", "a "},
      {"without protection", {{40, 200, 200}}, "", "", "", false},
  };
  for (auto const& c : cases)
    for (bool const threadless : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (threadless ? "" : ", with threads"));
      RecorderSession s({VideoTrack()}, threadless);
      s.options.segments.time_ns = 1000 * kMs;
      s.options.events.protect = c.protect;
      ASSERT_TRUE(s.Open()) << s.why.text;
      for (int i = 0; i <= 125; ++i) {
        std::size_t number = 0;
        for (auto const& event : c.events) {
          std::string const label(1, static_cast<char>('a' + number++));
          EXPECT_TRUE(event.after_frames != i ||
                      s.recorder->Event(label, event.before_ms * kMs, event.after_ms * kMs) ==
                          Code::kOk);
        }
        if (i == 125) break;
        EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk);
        bool const last = threadless && i == c.events.back().after_frames;
        EXPECT_TRUE(!last || Marked(s) == c.markedAtOnce) << Marked(s);
      }
      EXPECT_TRUE(s.recorder->Stop());
      EXPECT_EQ(s.recorder->GetStatus().events, c.events.size());
      EXPECT_EQ(Marked(s), c.marked);
      std::set<std::string> reported;
      for (Event const& event : s.events)
        if (event.kind == Event::kProtected) reported.insert(event.path.substr(6, 1));
      std::string const all(c.marked);
      EXPECT_EQ(reported.size(), (all.size() + 1) / 2);
      std::string labels;
      std::string const marker = s.storage.Text("cam-00" + all.substr(0, 1) + ".avi.keep");
      for (auto const& event : KeepMarker::Parse(marker).events) labels += event.label + " ";
      EXPECT_EQ(labels, c.labels);
    }
}

// Logs how markers are opened and removed.
struct LoggedStorage : MemoryStorage {
  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override {
    if (path.find(".keep") != path.npos) log += std::string(mode) + " ";
    return MemoryStorage::Open(path, mode);
  }
  bool Remove(std::string const& path) override {
    if (path.find(".keep") != path.npos) log += "remove ";
    return MemoryStorage::Remove(path);
  }
  std::string log;
};

TEST(Events, MarkersAreRewrittenInPlaceAndRemovedOnRequest) {
  LoggedStorage storage;
  RecorderSession s({VideoTrack()}, true);
  s.options.storage = &storage;
  s.options.segments.time_ns = 1000 * kMs;
  constexpr std::int64_t kStart_ns = 1795359397123 * kMs;  // 2026-11-22T14:56:37.123Z
  s.options.start.captured = [](std::int64_t time_ns) {
    return record::CaptureTime{kStart_ns + time_ns, true};
  };
  ASSERT_TRUE(s.Open()) << s.why.text;
  std::string const file = "cam-001.avi", marker = file + ".keep";
  auto const push = [&](int from, int to) {
    for (int i = from; i < to; ++i)
      EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk) << i;
  };
  push(0, 5);
  EXPECT_EQ(s.recorder->Event("a \"b\"\n\xff", 100 * kMs, 300 * kMs), Code::kOk);
  push(5, 6);
  EXPECT_EQ(s.recorder->Event("c", 0, 1000 * kMs), Code::kOk);
  push(6, 10);
  EXPECT_EQ(storage.Text(marker),
            "{\n"
            "  \"label\": \"a \\\"b\\\"\\u000a\xEF\xBF\xBD\",\n"
            "  \"time\": \"2026-11-22T14:56:37.323Z\",\n"
            "  \"window\": {\"from\": \"2026-11-22T14:56:37.223Z\", \"to\": "
            "\"2026-11-22T14:56:38.363Z\"},\n"
            "  \"events\": [\n"
            "    {\"label\": \"a \\\"b\\\"\\u000a\xEF\xBF\xBD\", \"time\": "
            "\"2026-11-22T14:56:37.323Z\", \"window\": {\"from\": \"2026-11-22T14:56:37.223Z\", "
            "\"to\": \"2026-11-22T14:56:37.623Z\"}},\n"
            "    {\"label\": \"c\", \"time\": \"2026-11-22T14:56:37.363Z\", \"window\": {\"from\": "
            "\"2026-11-22T14:56:37.362Z\", \"to\": \"2026-11-22T14:56:38.363Z\"}}\n"
            "  ]\n}\n");
  EXPECT_EQ(storage.log, "rwbc r+b ");
  EXPECT_TRUE(s.recorder->Unprotect(file));
  EXPECT_EQ(storage.File(marker), nullptr);
  EXPECT_TRUE(s.recorder->Unprotect(file)) << "has none";
  for (std::string const other : {"dog-001.avi", "x/cam-001.avi", "cam-001.avi.keep", ""})
    EXPECT_EQ(s.recorder->Unprotect(other).code, Code::kInvalid) << other;
  push(10, 50);
  EXPECT_EQ(storage.File(marker), nullptr) << "stays away";
  EXPECT_NE(storage.File("cam-002.avi.keep"), nullptr) << "later files stay protected";
  storage.refused = ".keep";
  EXPECT_EQ(s.recorder->Event("d", 0, 0), Code::kOk);
  push(50, 51);
  EXPECT_THAT(s.recorder->GetStatus().lastError, HasSubstr("no marker was written"));
  EXPECT_EQ(s.recorder->GetStatus().protectedFiles, 1u) << "in memory";
  EXPECT_EQ(s.recorder->Event("e", -1, 0), Code::kInvalid);
  EXPECT_EQ(s.recorder->Event("e", 0, INT64_MAX), Code::kInvalid);
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(s.recorder->Event("e"), Code::kEnded);
}

// Three files of an earlier recorder, which ended 20, 10 and 1 s before now, and an event now.
TEST(Events, ProtectFilesOfEarlierRecorders) {
  constexpr std::int64_t kSecond = 1000 * kMs, kNow = 1795359397 * kSecond;
  struct Dated : MemoryStorage {
    bool List(std::string const& folder, std::vector<Entry>& entries) override {
      bool const listed = MemoryStorage::List(folder, entries);
      for (Entry& entry : entries)
        for (int i = 0; i < 3; ++i)
          if (entry.name == "cam-00" + std::to_string(i + 1) + ".avi") {
            entry.modified_ns = kNow - ages_s[i] * kSecond;
            entry.plain = i != linked;
          }
      return listed;
    }
    std::int64_t ages_s[3] = {20, 10, 1};
    int linked = -1;
  };
  struct {
    char const* name;
    std::int64_t before_s;
    char const* marked;
    std::int64_t wall_ns = kNow;
    std::int64_t first_s = 20;  // age of the first file
    int linked = -1;
    bool early = false;    // the event comes before the first packet
    bool markers = false;  // of the second file; a damaged one of the third
  } const cases[] = {
      {"only this recorder's", 0, "4"},
      {"the last", 5, "3 4"},
      {"the last two", 15, "2 3 4"},
      {"all", 30, "1 2 3 4"},
      {"all, with markers", 30, "1 2 3 4", kNow, 20, -1, false, true},
      {"before the first packet", 15, "2 3", kNow, 20, -1, true},
      {"one from the future", 30, "2 3 4", kNow, -100},
      {"one that is a link", 30, "1 3 4", kNow, 20, 1},
      {"the clock was not set", 30, "4", kSecond},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    Dated storage;
    storage.ages_s[0] = c.first_s;
    storage.linked = c.linked;
    for (int i = 1; i <= 3; ++i) storage.Open("cam-00" + std::to_string(i) + ".avi", "rwbc");
    KeepMarker old;
    old.events = {{"old", "", "", ""}};
    old.from = "2026-11-22T00:00:00.000Z";  // and no end
    std::string const text = old.Compose();
    auto const size = static_cast<unsigned>(text.size());
    for (int i = 2; i <= 3 && c.markers; ++i)
      storage.Open("cam-00" + std::to_string(i) + ".avi.keep", "rwbc")
          ->Write(text.data(), i == 2 ? size : size / 2);
    RecorderSession s({VideoTrack()}, true);
    s.options.storage = &storage;
    s.options.retention.keepFiles = 100;
    s.options.start.wallClock = [&c] { return c.wall_ns; };
    ASSERT_TRUE(s.Open()) << s.why.text;
    EXPECT_TRUE(!c.early || s.recorder->Event("new", c.before_s * kSecond, 0) == Code::kOk);
    EXPECT_EQ(s.Push(0, Picture(0), 0, true), Code::kOk);
    EXPECT_TRUE(c.early || s.recorder->Event("new", c.before_s * kSecond, 0) == Code::kOk);
    EXPECT_TRUE(s.recorder->Stop());
    std::string marked;
    for (int i = 1; i <= 4; ++i) {
      std::string const marker = "cam-00" + std::to_string(i) + ".avi.keep";
      if (storage.File(marker) == nullptr) continue;
      marked += (marked.empty() ? "" : " ") + std::to_string(i);
      KeepMarker const written = KeepMarker::Parse(storage.Text(marker));
      EXPECT_NE(written.from, old.from) << marker;
      auto const& events = written.events;
      EXPECT_EQ(events.size(), i == 2 && c.markers ? 2u : 1u) << marker;
      EXPECT_TRUE(!events.empty() && events.back().label == "new") << marker;
    }
    EXPECT_EQ(marked, c.marked);
  }
}

// Files of a second each, of which three stay, and an event in the second one.
TEST(Events, KeepFilesFromBeingDeleted) {
  struct {
    char const* name;
    char const* refused;  // files with this in their names cannot be written
    int unprotect;        // after so many frames
    char const* files;    // that are left
  } const cases[] = {
      {"with a marker", "", 1000, "2 8 9 10 "},
      {"in memory, without a marker", ".keep", 1000, "2 8 9 10 "},
      {"until it is unprotected", "", 150, "8 9 10 "},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RecorderSession s({VideoTrack()}, true);
    s.storage.refused = c.refused;
    s.options.path = "card/cam-%d.avi";
    s.options.segments.time_ns = 1000 * kMs;
    s.options.retention.keepFiles = 3;
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 250; ++i) {
      EXPECT_TRUE(i != 40 || s.recorder->Event("event", 0, 0) == Code::kOk);
      EXPECT_TRUE(i != c.unprotect || s.recorder->Unprotect("cam-2.avi"));
      EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk) << i;
    }
    EXPECT_TRUE(s.recorder->Stop()) << s.recorder->GetStatus().lastError;
    std::string files;
    for (int i = 1; i <= 10; ++i)
      if (s.storage.Exists("card/cam-" + std::to_string(i) + ".avi"))
        files += std::to_string(i) + " ";
    EXPECT_EQ(files, c.files);
  }
}

// The thread that writes markers waits for the storage, until space becomes free for example.
TEST(Events, AreUnprotectedWhileAMarkerIsWritten) {
  struct SlowStorage : MemoryStorage {
    std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override {
      for (; slow && path == "cam-001.avi.keep"; opens = true) std::this_thread::yield();
      return MemoryStorage::Open(path, mode);
    }
    std::atomic<bool> slow{true}, opens{false};
  };
  for (bool const again : {false, true}) {
    Watchdog const watchdog("a marker that waits");
    SlowStorage storage;
    RecorderSession s({VideoTrack()});
    s.options.storage = &storage;
    ASSERT_TRUE(s.Open()) << s.why.text;
    EXPECT_EQ(s.Push(0, Picture(0), 0, true), Code::kOk);
    while (s.recorder->GetStatus().packets < 1) std::this_thread::yield();
    EXPECT_EQ(s.recorder->Event("event", 0, 0), Code::kOk);
    while (!storage.opens) std::this_thread::yield();
    EXPECT_TRUE(s.recorder->Unprotect("cam-001.avi"));
    EXPECT_EQ(s.recorder->GetStatus().protectedFiles, 0u);
    EXPECT_TRUE(!again || s.recorder->Event("again", 0, 0) == Code::kOk);
    storage.slow = false;
    EXPECT_TRUE(s.recorder->Stop());
    EXPECT_EQ(storage.Exists("cam-001.avi.keep"), again);
  }
}

// The numbers of the first and last frame of each file.
std::string Frames(MemoryStorage const& storage, std::size_t track = 0) {
  std::string all;
  for (std::string const& name : storage.Names()) {
    if (name.substr(name.size() - 4) != ".avi") continue;
    auto const payloads = storage.Payloads(track, name);
    auto const number = [](std::string const& payload) {
      return payload.substr(payload.rfind('#') + 1, 4);
    };
    all += (all.empty() ? "" : " ") + number(payloads.front()) + "-" + number(payloads.back());
    EXPECT_EQ(std::stoul(number(payloads.back())) - std::stoul(number(payloads.front())) + 1,
              payloads.size())
        << name;
  }
  return all;
}

std::string NumberedFrame(int number, bool key, std::size_t bytes) {
  std::ostringstream text;
  text << std::string(bytes, '.') << "#" << std::setw(4) << std::setfill('0') << number;
  if (number == 0) return StoredKeyFrame(text.str());
  return key ? kStart + "\x65" + text.str() : StoredFrame(text.str());
}

std::size_t HeapBytes() {
  auto const now = mallinfo2();
  return now.uordblks + now.hblkhd;
}

// Each file is protected, begins with parameter sets, and has the audio of its pictures. `whole`:
// the recording did not stop before audio that was late.
void ExpectClips(MemoryStorage const& storage, bool whole) {
  for (std::string const& name : storage.Names()) {
    if (name.substr(name.size() - 4) != ".avi") continue;
    auto const pictures = storage.Payloads(0, name);
    EXPECT_EQ(pictures[0].find(kStart + "\x67"), 0u) << name << " begins without sets";
    std::size_t audio = 0;
    for (std::string const& block : storage.Payloads(1, name)) audio += block.size();
    bool const last = !whole || pictures.back().find("#0499") != std::string::npos;
    EXPECT_EQ(audio + (last ? 3 * 640 : 0), pictures.size() * 640) << name;
    EXPECT_TRUE(storage.Read(name)->Indexed()) << name;
    EXPECT_NE(storage.File(name + ".keep"), nullptr) << name;
  }
}

// 20 s of frames of 40 ms, and audio that comes later or earlier. Only the first key frame has
// parameter sets.
TEST(Events, RecordOnlyTheirTime) {
  Watchdog const watchdog("events only");
  constexpr std::uint64_t kSmall = 1000000;
  struct {
    char const* name;
    std::vector<int> events;  // after how many frames
    std::int64_t before_ms, after_ms;
    char const* frames;
    int keys = 25;  // every so many frames
    int bytes = 1000;
    std::uint64_t maxBytes = 64 << 20;  // less: without threads only
    int stop = 500;                     // after how many frames
    int gap = 500;                      // frames from this one on come 60 ms later
    int late = 3;                       // so many frames later comes the audio
  } const cases[] = {
      {"no event", {}, 3000, 2000, ""},
      {"one", {251}, 3000, 2000, "0175-0300"},
      {"to a moment", {251}, 3000, 0, "0175-0250"},
      {"from a moment", {255}, 0, 1000, "0250-0279"},
      {"at the very start", {0}, 3000, 2000, "0000-0049"},
      {"shortly after the start", {10}, 3000, 2000, "0000-0059"},
      {"before and after the end", {490}, 3000, 60000, "0400-0499"},
      {"two apart", {100, 300}, 1000, 1000, "0075-0124 0275-0324"},
      {"two that overlap", {100, 120}, 1000, 1000, "0075-0144"},
      {"three that overlap", {100, 124, 125}, 1000, 1000, "0075-0149"},
      {"back into the last file", {100, 140}, 1000, 1000, "0075-0124 0125-0164", 25, 1000, kSmall},
      {"into a long group", {100, 160}, 2000, 1000, "0050-0124 0100-0184", 50, 1000, kSmall},
      {"the ring is full", {251}, 20000, 1000, "0175-0275", 25, 10000, kSmall},
      {"a group is too large", {200}, 20000, 4000, "0250-0299", 250, 10000, kSmall},
      {"no key frame comes after that", {200}, 20000, 1000, "", 250, 10000, kSmall},
      {"after such a group", {101, 130}, 1000, 1000, "0100-0125 0100-0154", 100, 10000, kSmall},
      {"key frames only", {251}, 1000, 1000, "0226-0275", 1},
      {"stopped at once", {251}, 1000, 1000, "0225-0250", 25, 1000, 64 << 20, 251},
      {"a gap at the end", {251}, 3000, 2000, "0175-0299", 25, 1000, 64 << 20, 500, 300},
      {"audio is ahead", {251}, 3000, 2000, "0175-0303", 25, 1000, 64 << 20, 500, 500, -3},
  };
  for (auto const& c : cases)
    for (bool const threadless : {true, false}) {
      if (!threadless && c.maxBytes < 64 << 20) continue;  // a later moment drops other packets
      SCOPED_TRACE(std::string(c.name) + (threadless ? "" : ", with threads"));
      RecorderSession s({VideoTrack(), AudioTrack()}, threadless);
      s.options.events = {true, c.before_ms * kMs, c.after_ms * kMs, c.maxBytes, true};
      ASSERT_TRUE(s.Open()) << s.why.text;
      std::size_t const base = HeapBytes();
      std::size_t most = 0;
      for (int i = 0; i <= c.stop; ++i) {
        for (int const at : c.events)
          EXPECT_TRUE(at != i || s.recorder->Event("event") == Code::kOk);
        bool const before = c.events.empty() || i < c.events[0];
        EXPECT_TRUE(!before || s.storage.Names().empty()) << i;

        if (i == c.stop) break;
        bool const key = i % c.keys == 0;
        std::string const frame = NumberedFrame(i, key, static_cast<std::size_t>(c.bytes));
        EXPECT_EQ(s.Push(0, frame, (i * 40 + (i < c.gap ? 0 : 60)) * kMs, key), Code::kOk) << i;
        EXPECT_TRUE(i < c.late ||
                    s.Push(1, std::string(640, 'a'), (i - c.late) * 40 * kMs) == Code::kOk)
            << i;

        if (before) most = std::max(most, HeapBytes() - base);
      }
      bool const over = threadless && c.stop == 500 && c.after_ms < 60000;
      EXPECT_TRUE(!over || s.recorder->GetStatus().state == Status::kIdle);

      EXPECT_TRUE(s.recorder->Stop()) << s.recorder->GetStatus().lastError;
      EXPECT_EQ(Frames(s.storage), c.frames);
      EXPECT_EQ(s.Count(record::Event::kWarning) > 0, c.bytes == 10000) << "too little memory";
      EXPECT_TRUE(c.maxBytes > kSmall || most < kSmall + 100000) << most;
      ExpectClips(s.storage, c.stop == 500);
    }
}

// A file waits ten seconds for audio, and not at all for texts.
TEST(Events, WaitForAudioThatLags) {
  for (auto const& [blocks, last] : {std::pair(1000, 50), {40, 299}}) {
    SCOPED_TRACE(blocks);
    RecorderSession s({VideoTrack(), AudioTrack(), TextTrack()}, true);
    s.options.events = {true, 0, 1000 * kMs, 64 << 20, true};
    ASSERT_TRUE(s.Open()) << s.why.text;
    int i = 0;
    for (; i < 26 || s.recorder->GetStatus().state == Status::kRecording; ++i) {
      EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk);
      EXPECT_TRUE(i >= blocks || s.Push(1, std::string(640, 'a'), i * 40 * kMs) == Code::kOk);
      EXPECT_TRUE(i != 24 || s.recorder->Event("event") == Code::kOk);
    }
    EXPECT_EQ(i - 1, last) << "the picture after which the file ended";
  }
}

// There are too many files to remember; the first one still needs its marker.
TEST(Events, RememberFilesToProtect) {
  MemoryStorage storage;
  record::RecorderOptions options;
  options.storage = &storage;
  options.threadless = true;
  record::Events events(options, [](Event) {});
  for (int i = 0; i < 5000; ++i) {
    events.Opened(std::to_string(i), i * kMs);
    EXPECT_TRUE(i != 0 || events.Add("a", {0, 0}, kMs / 2, {}, kMs));
    events.Closed(std::to_string(i), kMs);
  }
  EXPECT_TRUE(events.IsProtected("0"));
  EXPECT_TRUE(events.Add("b", {5000 * kMs, 0}, 5000 * kMs, {}, 5000 * kMs));
  EXPECT_TRUE(events.IsProtected("4999"));
  EXPECT_FALSE(events.IsProtected("1")) << "there are too many";
  EXPECT_EQ(events.ProtectedFiles(), 4096u);
}

// The name of the next file needs the clock, which fails.
TEST(Events, ReportFaultsBetweenFiles) {
  RecorderSession s({VideoTrack()}, true);
  s.options.path = "cam-%H-%N.avi";
  s.options.events.only = true;
  s.options.events.after_ns = 0;
  s.options.start.captured = [](std::int64_t at) { return record::CaptureTime{at, true}; };
  bool lost = false;
  s.options.start.wallClock = [&lost] { return !lost ? 0 : throw std::runtime_error("no clock"); };
  ASSERT_TRUE(s.Open()) << s.why.text;
  lost = true;
  Code code = Code::kOk;
  for (int i = 0; i < 20 && code == Code::kOk; ++i) {
    code = s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0);
    EXPECT_TRUE(i != 8 || s.recorder->Event("event") == Code::kOk);
  }
  EXPECT_EQ(code, Code::kIo);
  EXPECT_EQ(s.recorder->Stop().text, "no clock");
}

TEST(Events, AreRecordedThoughNoPacketFollows) {
  Watchdog const watchdog("event");
  for (bool const queue : {true, false}) {
    RecorderSession s({VideoTrack()});
    s.options.events.only = true;
    s.options.queue.enabled = queue;
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 10; ++i)
      EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk);
    EXPECT_EQ(s.recorder->Event("crash"), Code::kOk);
    while (s.recorder->GetStatus().packets < 10) std::this_thread::yield();
    EXPECT_EQ(s.recorder->GetStatus().state, Status::kRecording);
  }
}

}  // namespace
}  // namespace kestro::test
