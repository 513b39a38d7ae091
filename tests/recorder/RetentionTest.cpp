// Loop recording: what is deleted, when, and what never is.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>
#include <thread>

#include "avi/NamePattern.h"
#include "recorder/CStorage.h"
#include "recorder/RecorderSession.h"
#include "support/SmallCard.h"
#include "support/Watchdog.h"

namespace kestro::test {
namespace {

namespace fs = std::filesystem;
using record::Code;
using record::Event;
using record::SyncOptions;
using testing::HasSubstr;

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::int64_t kSecond = 1000 * kMs;

// A picture of some size that begins with its number.
std::string Sized(int number, int gop = 5, std::size_t size = 20000) {
  std::string picture = Picture(number, gop);
  picture.resize(size, 'v');
  return picture;
}

// Records to a small card.
struct CardSession : RecorderSession {
  explicit CardSession(SmallCard const& to, std::string const& pattern = "cam-%03d.avi",
                       bool threadless = false)
      : RecorderSession({VideoTrack()}, threadless), card(to) {
    options.storage = nullptr;
    options.path = card / pattern;
  }
  // Pushes pictures until one is refused.
  Code PushSized(int count) {
    Code code = Code::kOk;
    for (int end = next + count; next < end && code == Code::kOk; next += code == Code::kOk)
      code = Push(0, Sized(next), next * 40 * kMs, next % 5 == 0);
    return code;
  }
  // The names of the recordings, in order, and the numbers of the pictures in them.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (auto const& entry : fs::directory_iterator(card / ""))
      if (std::string const name = entry.path().filename();
          entry.is_regular_file() && entry.symlink_status().type() == fs::file_type::regular &&
          avi::NamePattern(options.path.substr(options.path.rfind('/') + 1)).Match(name) &&
          fs::hard_link_count(entry.path()) == 1)
        names.push_back(name);
    std::sort(names.begin(), names.end(), [](auto const& a, auto const& b) {
      return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return names;
  }
  std::vector<int> Pictures(std::string const& name) const {
    std::vector<int> numbers;
    avi::AviFile avi(card / name);
    EXPECT_TRUE(avi.Indexed()) << name;
    avi.ForEachEntry([&](avi::IndexEntry const& entry) {
      std::string payload(avi.DataSize(entry), '\0');
      avi.Reader().Read(entry.offset + 8, payload.data(), static_cast<unsigned>(payload.size()));
      numbers.push_back(
          std::atoi(payload.c_str() + payload.rfind(kStart) + 5));  // after the slice header
      EXPECT_EQ(payload, Sized(numbers.back())) << name;
    });
    return numbers;
  }
  // Checks that the pictures in these files follow each other without a gap; returns the last + 1.
  int ExpectNoGaps(std::vector<std::string> const& files) const {
    int last = -1;
    for (std::string const& name : files)
      for (int number : Pictures(name)) {
        EXPECT_TRUE(last < 0 || number == last + 1) << name << ": " << number << " after " << last;
        last = number;
      }
    return last + 1;
  }

  SmallCard const& card;
  int next = 0;
};

// Things that look like recordings and are none, or not ours to delete.
class Bystanders {
 public:
  explicit Bystanders(SmallCard const& card) : _card(card) {
    for (char const* name : {"cam-000.avi", "cam-01.avi", "cam-0001.avi", "CAM-001.avi",
                             "cam-001.avi.bak", "other-001.avi", "target", "cam-001.avi.keep.txt"})
      Write(name, std::string("content of ") + name);
    fs::create_symlink("target", _card / "cam-001.avi");
    fs::create_symlink("nowhere", _card / "cam-002.avi");
    fs::create_hard_link(_card / "target", _card / "cam-003.avi");
    fs::create_directory(_card / "cam-004.avi");
    Write("cam-004.avi/cam-001.avi", "inside");
    Write("cam-004.avi.sha256", "next to a folder");
    mkfifo((_card / "cam-005.avi").c_str(), 0600);
    Write("cam-006.avi", "protected");
    Write("cam-006.avi.sha256", "its hash");
    fs::create_directory(_card / "cam-006.avi.keep");
  }
  void ExpectUntouched() const {
    for (auto const& [name, text] : _files) EXPECT_EQ(FileText(_card / name), text) << name;
    EXPECT_EQ(fs::read_symlink(_card / "cam-001.avi"), "target");
    EXPECT_EQ(fs::read_symlink(_card / "cam-002.avi"), "nowhere");
    EXPECT_EQ(fs::hard_link_count(_card / "cam-003.avi"), 2u);
    EXPECT_TRUE(fs::is_fifo(_card / "cam-005.avi"));
  }

 private:
  void Write(std::string const& name, std::string const& text) {
    std::ofstream(_card / name) << text;
    _files[name] = text;
  }
  SmallCard const& _card;
  std::map<std::string, std::string> _files;
};

// 40 MB of pictures on a card of 16 MiB; in the middle, another program fills it.
TEST(Retention, LoopsOnASmallCardAndTouchesNothingElse) {
  REQUIRE_SMALL_CARDS();
  Watchdog const watchdog("loop recording");
  struct {
    char const* name;
    std::function<void(record::RecorderOptions&)> limit;
    bool threadless = false;
  } const cases[] = {
      {"free space", [](auto& o) { o.retention.keepFree = 4 * kMiB; }},
      {"free space, synced",
       [](auto& o) {
         o.retention.keepFree = 4 * kMiB;
         o.sync.mode = SyncOptions::kInPlace;
         o.sync.reserve_ns = 60 * kSecond;
         o.hash = CanHash();
       }},
      {"bytes, side files",
       [](auto& o) {
         o.retention.keepBytes = 6 * kMiB;
         o.sync.mode = SyncOptions::kCallback;
       }},
      {"files",
       [](auto& o) {
         o.retention.keepFiles = 4;
         o.segments.size = kMiB;
       }},
      {"the card only", [](auto& o) { o.retention.keepFiles = 1000; }},
      {"threadless", [](auto& o) { o.retention.keepFree = 4 * kMiB; }, true},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    SmallCard const card(16);
    Bystanders const others(card);
    CardSession s(card, "cam-%03d.avi", c.threadless);
    c.limit(s.options);
    ASSERT_TRUE(s.Open()) << s.why.text;
    EXPECT_EQ(s.PushSized(1000), Code::kOk) << s.recorder->GetStatus().lastError;
    std::ofstream(card / "filler") << std::string(3 * kMiB, 'f') << std::flush;
    EXPECT_EQ(s.PushSized(1000), Code::kOk) << s.recorder->GetStatus().lastError;
    auto const result = s.recorder->Stop();
    EXPECT_TRUE(result) << result.text;

    others.ExpectUntouched();
    auto const status = s.recorder->GetStatus();
    auto files = s.Files();
    files.erase(files.begin());  // the protected one
    EXPECT_EQ(s.ExpectNoGaps(files), 2000);
    EXPECT_GT(status.deletedFiles, 5u);
    EXPECT_EQ(status.deletedFiles, static_cast<unsigned>(s.Count(Event::kDeleted)));
    EXPECT_EQ(status.protectedFiles, 1u);
    EXPECT_EQ(status.files - status.deletedFiles, files.size());
    EXPECT_GT(files.size(), 2u) << "more was deleted than needed";
    std::uint64_t bytes = 0;
    for (std::string const& name : files) {
      bytes += fs::file_size(card / name);
      EXPECT_FALSE(s.options.hash && !fs::exists(card / (name + ".sha256"))) << name;
    }
    auto const& limits = s.options.retention;
    EXPECT_LE(bytes, limits.keepBytes.value_or(UINT64_MAX));
    EXPECT_LE(files.size(), limits.keepFiles.value_or(UINT64_MAX));
    EXPECT_GE(fs::space(card / "").available, limits.keepFree.value_or(0));
    for (auto const& entry : fs::directory_iterator(card / ""))
      EXPECT_FALSE(entry.path().extension() == ".sync") << entry.path() << " has no recording";
  }
}

TEST(Retention, ClosesTheFileWholeWhenNothingMayBeDeleted) {
  REQUIRE_SMALL_CARDS();
  Watchdog const watchdog("nothing to delete");
  struct {
    char const* name;
    std::function<void(record::RetentionOptions&)> limit;
    char const* said;
  } const limits[] = {
      {"free space", [](auto& o) { o.keepFree = 3 * kMiB; }, "the limit of free space cannot"},
      {"bytes", [](auto& o) { o.keepBytes = 5 * kMiB; }, "the limit of bytes cannot"},
      {"the card", [](auto& o) { o.keepFiles = 99; }, "the storage is full"},
  };
  for (auto const& c : limits)
    for (auto const mode :
         {SyncOptions::kOff, SyncOptions::kInPlace, SyncOptions::kImage, SyncOptions::kCallback}) {
      SCOPED_TRACE(c.name + (", mode " + std::to_string(mode)));
      SmallCard const card(8);
      CardSession s(card);
      c.limit(s.options.retention);
      s.options.sync.mode = mode;
      s.options.sync.reserve_ns = 60 * kSecond;
      s.options.segments.size = kMiB;
      // Someone protects each file as soon as it is there.
      s.options.onEvent = [&](Event const& event) {
        if (event.kind == Event::kOpened) std::ofstream(event.path + ".keep");
        s.events.push_back(event);
      };
      ASSERT_TRUE(s.Open()) << s.why.text;
      Code code = Code::kOk;
      for (int i = 0; i < 2000 && code == Code::kOk; ++i) {
        code = s.PushSized(1);
        // Slowly at the end: on a busy machine the thread that watches the space comes late.
        bool const end = fs::space(card / "").available < kMiB;
        std::this_thread::sleep_for(std::chrono::microseconds(end ? 5000 : 500));
      }
      EXPECT_EQ(code, Code::kFull);
      auto const result = s.recorder->Stop();
      EXPECT_EQ(result.code, Code::kFull);
      EXPECT_THAT(result.text, HasSubstr(c.said));
      EXPECT_THAT(result.text, HasSubstr("protected file"));
      EXPECT_EQ(s.Count(Event::kDeleted), 0);
      std::uint64_t packets = 0;
      for (Event const& event : s.events) {
        if (event.kind != Event::kClosed) continue;
        EXPECT_TRUE(event.complete) << event.text;
        packets += event.packets;
      }
      EXPECT_EQ(static_cast<std::uint64_t>(s.ExpectNoGaps(s.Files())), packets);
      EXPECT_GT(packets, 50u);
      for (std::string const& name : s.Files())
        EXPECT_FALSE(fs::exists(card / (name + ".sync"))) << name;
    }
}

// Another program plays the oldest files: deleting them frees nothing yet.
TEST(Retention, DoesNotDeleteAllWhileSpaceIsStillComing) {
  REQUIRE_SMALL_CARDS();
  for (bool const threadless : {true, false}) {
    Watchdog const watchdog("deleted files that are open");
    SmallCard const card(16);
    CardSession s(card, "cam-%03d.avi", threadless);
    s.options.retention.keepFree = 6 * kMiB;
    s.options.segments.size = kMiB;
    ASSERT_TRUE(s.Open()) << s.why.text;
    EXPECT_EQ(s.PushSized(300), Code::kOk);
    while (s.recorder->GetStatus().packets < 300) std::this_thread::yield();
    std::vector<std::ifstream> players;
    for (std::string const& name : s.Files()) players.emplace_back(card / name);
    EXPECT_EQ(players.size(), 7u) << "files are as large as they may be";
    EXPECT_EQ(s.PushSized(200), Code::kOk);
    auto const settled = [&s] {
      for (int i = 0; i < 3; ++i) EXPECT_EQ(s.Push(1, "no such track", 0), Code::kInvalid);
      return s.recorder->GetStatus().deletedFiles;
    };
    auto const early = settled();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    auto const deleted = settled();
    EXPECT_GE(deleted, 1u);
    EXPECT_LE(deleted, threadless ? early : 4) << "deleted for nothing";
    players.clear();
    EXPECT_EQ(s.PushSized(200), Code::kOk);
    EXPECT_TRUE(s.recorder->Stop());
    EXPECT_EQ(s.ExpectNoGaps(s.Files()), 700);
    EXPECT_GE(fs::space(card / "").available, 6 * kMiB);
  }
}

TEST(Retention, DeletesByAge) {
  RecorderSession s({VideoTrack()}, true);
  std::int64_t now_ns = 0;
  s.options.clock = [&now_ns] { return now_ns; };
  s.options.start.wallClock = [&now_ns] { return 1800000000 * kSecond + now_ns; };
  s.options.segments.time_ns = kSecond;
  s.options.retention.keepAge_ns = 3 * kSecond;
  for (char const* old : {"cam-001.avi.sync",  // its recording is gone
                          "cam-002.avi", "cam-002.avi.sha256", "cam-002.avi.sync2",
                          "cam-003.avi"})  // cannot be deleted
    s.storage.Open(old, "rwbc")->Write("old", 3);
  s.storage.modified_ns = 1800000000 * kSecond - 2 * kSecond;
  s.storage.refused = "cam-003.avi";
  ASSERT_TRUE(s.Open()) << s.why.text;
  for (int i = 0; i < 250; ++i, now_ns += 40 * kMs) {
    EXPECT_EQ(s.Push(0, Picture(i), now_ns, i % 5 == 0), Code::kOk) << i;
    EXPECT_TRUE(i != 60 || !s.storage.Exists("cam-002.avi")) << "is 4 s old";
  }
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_THAT(s.storage.Names(), testing::ElementsAre("cam-003.avi", "cam-010.avi", "cam-011.avi",
                                                      "cam-012.avi", "cam-013.avi"));
  EXPECT_EQ(s.Count(Event::kWarning), 1);
}

// The event handler waits while the tracks change: the first file is not finished yet, so that the
// card may be full for a while, and the second one is empty, so that its name is used again.
TEST(Retention, KnowsWhichFilesAreOpen) {
  Watchdog const watchdog("open files");
  RecorderSession s({VideoTrack()});
  std::atomic<std::int64_t> now_ns{0};
  std::atomic<bool> wait{true};
  std::atomic<int> deleted{0};
  s.options.clock = [&now_ns] { return now_ns.load(); };
  s.options.retention.keepAge_ns = kSecond;
  s.options.retention.keepFree = 1;
  s.storage.free = 99 * kMiB;
  s.options.onEvent = [&](Event const& event) {
    while (wait) std::this_thread::yield();
    deleted += event.kind == Event::kDeleted;
  };
  ASSERT_TRUE(s.Open()) << s.why.text;
  int next = 0;
  auto const push = [&] {
    EXPECT_EQ(s.Push(0, Picture(next, 1), next * kSecond, true), Code::kOk) << next;
    now_ns = ++next * kSecond;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  push();
  EXPECT_TRUE(s.recorder->ChangeTracks({}));
  s.storage.free = 0;
  while (s.recorder->GetStatus().free != 0) std::this_thread::yield();
  s.storage.free = 99 * kMiB;
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(s.recorder->ChangeTracks(s.tracks));
  push();
  wait = false;
  for (int more = 30; more > 0; more -= deleted > 0) push();
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_EQ(deleted, 1);
  EXPECT_TRUE(s.storage.Exists("cam-002.avi"));
}

// The storage takes half a second to remove a file.
TEST(Retention, SlowDeletingDoesNotDelayPackets) {
  struct SlowStorage : MemoryStorage {
    bool Remove(std::string const& path) override {
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      return MemoryStorage::Remove(path);
    }
  } storage;
  RecorderSession s({VideoTrack()});
  s.options.storage = &storage;
  s.options.segments.time_ns = 200 * kMs;
  s.options.retention.keepFiles = 2;
  ASSERT_TRUE(s.Open()) << s.why.text;
  auto longest = std::chrono::steady_clock::duration::zero();
  for (int i = 0; i < 200; ++i) {
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(s.Push(0, Picture(i), i * 40 * kMs, i % 5 == 0), Code::kOk) << i;
    longest = std::max(longest, std::chrono::steady_clock::now() - begin);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(s.recorder->Stop());
  EXPECT_LT(longest, std::chrono::milliseconds(400)) << "Push waited for Remove";
  EXPECT_GT(s.recorder->GetStatus().deletedFiles, 1u);
}

// A recorder that is killed while it deletes, and the next one that goes on.
TEST(Retention, GoesOnAfterBeingKilled) {
  REQUIRE_SMALL_CARDS();
  SmallCard const card(16);
  Bystanders const others(card);
  std::mt19937 random(5);
  int highest = 6;
  for (int round = 0; round < 6; ++round) {
    SCOPED_TRACE(round);
    pid_t const child = fork();
    if (child == 0) {
      CardSession s(card);
      s.options.retention.keepBytes = 4 * kMiB;
      s.options.segments.size = kMiB / 2;
      s.options.sync.mode = SyncOptions::kImage;
      s.options.sync.reserve_ns = 10 * kSecond;
      if (!s.Open()) _exit(1);
      static_cast<void>(s.PushSized(1000000));
      _exit(2);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200 + random() % 400));
    kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself: " << WEXITSTATUS(status);
    CardSession const s(card);
    auto files = s.Files();
    ASSERT_GT(files.size(), 3u);
    files.erase(files.begin());  // the protected one
    int const now = std::stoi(files.back().substr(4));
    EXPECT_GT(now, highest);
    highest = now;
    others.ExpectUntouched();
  }
  CardSession s(card);
  s.options.retention.keepBytes = 2 * kMiB;
  ASSERT_TRUE(s.Open()) << s.why.text;
  EXPECT_EQ(s.PushSized(300), Code::kOk);
  EXPECT_TRUE(s.recorder->Stop());
  auto files = s.Files();
  files.erase(files.begin());
  EXPECT_GT(std::stoi(files.front().substr(4)), highest) << "the old ones went first";
  EXPECT_EQ(s.ExpectNoGaps(files), 300);
  others.ExpectUntouched();
}

TEST(Retention, RefusesLimitsThatItCannotKeep) {
  static constexpr std::uint64_t kMost = std::uint64_t{1} << 60;
  record::CStorage unlisted{kestro_recorder_storage{}};
  using S = RecorderSession;
  struct {
    char const* name;
    std::function<void(S&)> spoil;
    char const* said;
  } const cases[] = {
      {"a storage that cannot list", [&](S& s) { s.options.storage = &unlisted; }, "cannot list"},
      {"free space that is unknown", [](S& s) { s.options.retention.keepFree = kMost; }, "unknown"},
      {"overwriting", [](S& s) { s.options.overwrite = true; }, "overwriting"},
      {"too many bytes", [](S& s) { s.options.retention.keepBytes = kMost + 1; }, "too large"},
      {"no files", [](S& s) { s.options.retention.keepFiles = 0; }, "more than 0"},
      {"no time", [](S& s) { s.options.retention.keepAge_ns = -1; }, "more than 0"},
      {"a missing folder",
       [](S& s) {
         s.options.storage = nullptr;
         s.options.path = "/nowhere/cam-%d.avi";
       },
       "No such file"},
      {"the largest number",
       [](S& s) {
         s.options.retention.keepBytes = kMost;
         s.storage.Open("cam-999999999999999999.avi", "rwbc");
       },
       "largest number"},
  };
  for (auto const& c : cases) {
    S s({VideoTrack()});
    s.options.retention.keepFiles = 3;
    c.spoil(s);
    EXPECT_FALSE(s.Open()) << c.name;
    EXPECT_THAT(s.why.text, HasSubstr(c.said)) << c.name;
  }
}

}  // namespace
}  // namespace kestro::test
