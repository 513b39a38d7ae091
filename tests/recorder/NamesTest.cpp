// The names of recordings: patterns with numbers and dates, and how numbers go on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <sstream>

#include "avi/NameLocks.h"
#include "avi/NamePattern.h"
#include "avi/NumberedName.h"
#include "avi/Text.h"
#include "recorder/RecorderSession.h"

namespace kestro::test {
namespace {

using avi::NamePattern;

constexpr std::int64_t kSecond = 1000 * kMs;

std::tm At(int year, int month, int day, int hour, int minute, int second) {
  std::tm at = {};
  at.tm_year = year - 1900;
  at.tm_mon = month - 1;
  at.tm_mday = day;
  at.tm_hour = hour;
  at.tm_min = minute;
  at.tm_sec = second;
  return at;
}

TEST(Names, PatternsMakeNamesAndRecogniseOnlyThose) {
  struct {
    char const* pattern;
    std::vector<std::string> names;  // of numbers 1, 2 and 12345678
    std::vector<std::string> others;
  } const cases[] = {
      {"cam-%03d.avi",
       {"cam-001.avi", "cam-002.avi", "cam-12345678.avi"},
       {"cam-000.avi", "cam-01.avi", "cam-0001.avi", "cam-1.avi", "Cam-001.avi", "cam-001.AVI",
        "cam-001.avi2", "xcam-001.avi", "cam-+01.avi", "cam- 01.avi", "cam-.avi", "",
        "cam-1234567890123456789.avi", "cam-001.avi.sync"}},
      {"cam.avi",
       {"cam.avi", "cam-00002.avi", "cam-12345678.avi"},
       {"cam-00001.avi", "cam-2.avi", "cam-000002.avi", "cam-00000.avi", "cam-0000a.avi"}},
      {"%%%N2%d%%", {}, {}},
      {"%%%N2", {"%12", "%22", "%123456782"}, {"%2", "%02", "12", "%%12"}},
      {"c-%Y%m%d-%H%M%S-%05N.avi",
       {"c-20260307-091502-00001.avi", "c-20260307-091502-00002.avi",
        "c-20260307-091502-12345678.avi"},
       {"c-20261307-091502-00001.avi", "c-20260300-091502-00001.avi", "c-20260307-241502-00001.avi",
        "c-20260307-096002-00001.avi", "c-20260307-091561-00001.avi", "c-18260307-091502-00001.avi",
        "c-2026037-091502-00001.avi", "c-20260307-091502-0001.avi", "c-20260307-091502.avi",
        "c-2026 307-091502-00001.avi", "c-%Y%m%d-%H%M%S-00001.avi"}},
      {"%d.%m",  // the extension
       {"07-00001.03", "07-00002.03", "07-12345678.03"},
       {"07.03", "32-00001.03", "07-00001.13"}},
      {"%Y-%05d.avi", {}, {}},
      {"%H-%N-%N.avi", {}, {}},
      {"%d-%N.avi", {}, {}},
      {"%5d.avi", {}, {}},
      {"%y.avi", {}, {}},
      {"cam%", {}, {}},
  };
  std::tm const at = At(2026, 3, 7, 9, 15, 2);
  for (auto const& c : cases) {
    NamePattern const pattern(c.pattern);
    EXPECT_EQ(pattern.Valid(), !c.names.empty()) << c.pattern;
    if (!pattern.Valid() || c.names.empty()) continue;
    std::uint64_t const numbers[] = {1, 2, 12345678};
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(pattern.Format(numbers[i], at), c.names[i]) << c.pattern;
      EXPECT_EQ(pattern.Match(c.names[i]), numbers[i]) << c.pattern << ": " << c.names[i];
    }
    for (std::string const& other : c.others)
      EXPECT_FALSE(pattern.Match(other)) << c.pattern << ": " << other;
  }
}

// In the names of picture files, %N is text.
TEST(Names, NumbersReplaceOnePlace) {
  EXPECT_EQ(avi::NumberedName("%d/%N-%03d%%", 7), "%d/%N-007%");
  for (char const* path : {"%d/%N.jpg", "%d%d.jpg", "a.jpg"}) EXPECT_FALSE(avi::Numbered(path));
  EXPECT_TRUE(avi::Numbered("%N-%d.jpg"));
}

TEST(Names, EveryLockHasThatOfARecording) {
  std::string const folder = NewFolder();
  for (std::string const name : {"", "a"}) {
    std::string const lock = folder + "/." + name + avi::kLockEnding;
    int const file = open(lock.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(flock(file, LOCK_EX), 0);
    EXPECT_EQ(avi::LockHeld(folder, [](std::string const&) { return true; }), name == "a") << name;
    close(file);
  }
  std::filesystem::remove_all(folder);
}

TEST(Names, SizesAreReadable) {
  std::pair<std::uint64_t, char const*> const cases[] = {
      {0, "0 bytes"},      {999, "999 bytes"},        {1000, "1.0 kB"},
      {2500000, "2.5 MB"}, {5000000000000, "5.0 TB"}, {2000000000000000, "2000.0 TB"}};
  for (auto const& [bytes, text] : cases) EXPECT_EQ(avi::ByteCount(bytes), text);
}

// Three files of a second, in a folder with others.
TEST(Names, NumbersGoOnFromTheHighest) {
  using record::SyncOptions;
  struct {
    char const *name, *pattern;
    bool limits;
    char const *before, *made;
    SyncOptions::Mode sync = SyncOptions::kOff;
    char const* hours = "10 10 10";  // of the local clock, when each file starts
    bool lists = true;               // the storage
  } const cases[] = {
      {"without limits", "c-%d.avi", false, "c-2.avi c-9.avi", "c-10.avi c-11.avi c-12.avi"},
      {"gaps with limits", "c-%d.avi", true, "c-2.avi c-10.avi c-9.avi c-011.avi",
       "c-11.avi c-12.avi c-13.avi"},
      {"no number", "c.avi", true, "c.avi c-00005.avi", "c-00006.avi c-00007.avi c-00008.avi"},
      {"side files of a lost file", "c-%d.avi", true, "c-4.avi.sync2 c-3.avi.sha256",
       "c-5.avi c-6.avi c-7.avi", SyncOptions::kCallback},
      {"dates", "c-%H.avi", false, "c-09-00041.avi c-9-00099.avi",
       "c-10-00042.avi c-11-00043.avi c-12-00044.avi", SyncOptions::kOff, "10 11 12"},
      {"a clock that is set back", "c-%H%M-%N.avi", true, "c-2300-7.avi",
       "c-1000-8.avi c-0900-9.avi c-1000-10.avi", SyncOptions::kImage, "10 09 10"},
      {"no list of files", "c-%d.avi", false, "c-1.avi c-3.avi", "c-2.avi c-4.avi c-5.avi",
       SyncOptions::kOff, "10 10 10", false},
      {"dates, and no list of files", "c-%H.avi", false, "c-10-00001.avi c-11-00003.avi",
       "c-10-00002.avi c-11-00004.avi c-12-00005.avi", SyncOptions::kOff, "10 11 12", false},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RecorderSession s({VideoTrack()}, true);
    std::int64_t now_ns = 0;
    s.options.path = std::string("a/") + c.pattern;
    s.options.sync.mode = c.sync;
    s.options.segments.time_ns = kSecond;
    s.storage.lists = c.lists;
    if (c.limits) s.options.retention.keepFiles = 100;
    s.options.start.captured = [&](std::int64_t time_ns) -> std::optional<record::CaptureTime> {
      std::tm at = At(2026, 3, 7, std::atoi(c.hours + 3 * (time_ns / kSecond)), 0, 0);
      at.tm_isdst = -1;
      return record::CaptureTime{std::int64_t{mktime(&at)} * kSecond, true};
    };
    std::istringstream before(c.before);
    for (std::string name; before >> name;) s.storage.Open("a/" + name, "rwbc");
    std::size_t const others = s.storage.Names().size();
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 75; ++i, now_ns += 40 * kMs)
      EXPECT_EQ(s.Push(0, Picture(i, 25), now_ns, i % 25 == 0), record::Code::kOk) << i;
    EXPECT_TRUE(s.recorder->Stop());
    std::string made;
    for (auto const& event : s.events)
      if (event.kind == record::Event::kOpened) made += " " + event.path.substr(2);
    EXPECT_EQ(made, std::string(" ") + c.made);
    EXPECT_EQ(s.storage.Names().size(), others + 3);
  }
}

}  // namespace
}  // namespace kestro::test
