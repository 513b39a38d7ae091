// When files start: the text in which they store it, and how recorders find it out.
#include <gmock/gmock.h>

#include "avi/ClockAnchor.h"
#include "recorder/RecorderSession.h"

namespace kestro::test {
namespace {

using avi::ClockAnchor;
using avi::IsoTime;
using avi::Software;
using avi::StartTime;
using record::StartOptions;

constexpr std::int64_t kSecond = 1000 * kMs;
constexpr std::int64_t kAt = 1795359397 * kSecond;  // 2026-11-22T14:56:37Z

TEST(Start, DatesAreReadStrictly) {
  struct {
    char const* text;
    std::int64_t time_ns;  // -1: refused
    bool zoned = true;
  } const cases[] = {
      {"2026-11-22T14:56:37Z", kAt},
      {"2026-11-22 15:56:37.5+01:00", kAt + 500 * kMs},
      {"2026-11-22T09:26:37-05:30", kAt},
      {"2026-11-22T14:56:37.1234567899Z", kAt + 123456789},
      {"2026-11-22t14:56", kAt - 37 * kSecond, false},
      {"1970-01-01T00:00:00Z", 0},
      {"2000-02-29T00:00:00Z", 951782400 * kSecond},
      {"2261-12-31T23:59:59Z", 9214646399 * kSecond},
      {"2100-02-29T00:00:00Z", -1},
      {"2026-11-31T00:00:00Z", -1},
      {"2026-13-01T00:00:00Z", -1},
      {"2262-01-01T00:00:00Z", -1},
      {"2026-11-22T24:00:00Z", -1},
      {"2026-11-22T14:56:60Z", -1},
      {"2026-11-22T14:56:37.Z", -1},
      {"2026-11-22T14:56:37+1:00", -1},
      {"2026-11-22T14:56:37Z ", -1},
      {"2026-11-22", -1},
      {"26-11-22T14:56:37Z", -1},
      {"", -1},
  };
  for (auto const& c : cases) {
    auto const time = IsoTime::Parse(c.text);
    EXPECT_EQ(time ? time->time_ns : -1, c.time_ns) << c.text;
    EXPECT_TRUE(!time || time->zoned == c.zoned) << c.text;
  }
}

TEST(Start, SoftwareComesBackAndNothingElseIsTakenForAStart) {
  std::size_t length = 0;
  for (StartTime const& start :
       {StartTime{kAt + 123 * kMs, true}, StartTime{12345 * kMs, false}, StartTime{0, false},
        StartTime{951868799 * kSecond, true}, StartTime{999999999999 * kMs, false}}) {
    std::string const text = Software{"me; start x", start}.Compose();
    EXPECT_TRUE(length == 0 || text.size() == length) << text;
    length = text.size();
    Software const back = Software::Parse(text + std::string(3, '\0'));
    EXPECT_EQ(back.name, "me; start x") << text;
    ASSERT_TRUE(back.start) << text;
    EXPECT_EQ(back.start->time_ns, start.time_ns) << text;
    EXPECT_EQ(back.start->set, start.set) << text;
  }
  for (char const* text :
       {"", "me", "me; start ", "me; start 2026-11-22T14:56:37Z; clock set",
        "me; start 2026-11-22T14:56:37.123Z; clock since boot",
        "me; start 2026-11-22T14:56:37.123Z; clock set;", "me; start +1.5 s; clock since boot",
        "me; start +01.500 s; clock since boot", "me; start -1.500 s; clock since boot",
        "me; start +9999999999.999 s; clock since boot", "me; start +1.500 s; clock set"}) {
    Software const software = Software::Parse(text);
    EXPECT_FALSE(software.start) << text;
    EXPECT_EQ(software.name, text);
  }
}

// Packets that come at these times, in seconds, and when they are then said to be captured: seconds
// after kAt, or since the system was booted, marked with b.
TEST(Start, AnchorFollowsTheClockButNotLatePackets) {
  struct Step {
    double packet, wall, boot;
    char const* captured;
  };
  struct {
    char const* name;
    std::vector<Step> steps;
    ClockAnchor::Source source = ClockAnchor::kAuto;
  } const cases[] = {
      {"jitter", {{5, 0, 100, "0.0"}, {6, 2.9, 102.9, "1.0"}, {7, 0.1, 103, "2.0"}}},
      {"set for the first time",
       {{0, -3e8, 9, "9.0b"}, {1, -3e8, 20, "10.0b"}, {2, 60, 21, "60.0"}}},
      {"lost again", {{0, 0, 9, "0.0"}, {1, -3e8, 10, "10.0b"}}},
      {"set back", {{0, 0, 9, "0.0"}, {1, -3600, 10, "-3600.0"}, {2, -3599, 11, "-3599.0"}}},
      {"set forward",
       {{0, 0, 9, "0.0"},
        {1, 61, 10, "1.0"},
        {10, 70, 19, "10.0"},
        {11, 71.5, 20, "71.0"},
        {12, 72, 21, "72.0"}}},
      {"late for a while",
       {{0, 0, 0, "0.0"},
        {1, 9, 9, "1.0"},
        {2, 9, 9, "2.0"},
        {8, 9, 9, "8.0"},
        {9, 15, 15, "9.0"},
        {10, 18.5, 18.5, "10.0"}}},
      {"an old clock that is right", {{0, -3e8, 9, "-300000000.0"}}, ClockAnchor::kSet},
      {"a plausible clock that is not set", {{0, 0, 9, "9.0b"}}, ClockAnchor::kSinceBoot},
  };
  for (auto const& c : cases) {
    ClockAnchor anchor(c.source);
    auto const ns = [](double seconds) { return std::int64_t(seconds * 10) * 100 * kMs; };
    for (Step const& step : c.steps) {
      StartTime const at = anchor.Take(ns(step.packet), {kAt + ns(step.wall), ns(step.boot)});
      char text[32];
      std::snprintf(text, sizeof text, "%.1f%s", double(at.time_ns - (at.set ? kAt : 0)) / 1e9,
                    at.set ? "" : "b");
      EXPECT_STREQ(text, step.captured) << c.name << ", packet at " << step.packet << " s";
    }
  }
}

// Four files of a second. Their starts are in seconds after kAt, rounded down to milliseconds.
TEST(Start, FilesOfARecordingAgree) {
  struct {
    char const* name;
    std::function<void(StartOptions&, std::int64_t const& now_ns)> choose;
    std::vector<std::string> starts;
    char const* isft = "";
    record::SyncOptions::Mode sync = record::SyncOptions::kOff;
  } const cases[] = {
      {"a clock that jitters",
       [](StartOptions& start, std::int64_t const& now_ns) {
         start.wallClock = [&now_ns] { return kAt + now_ns + now_ns / 7 % (300 * kMs); };
       },
       {"kestro 0.000", "kestro 1.000", "kestro 2.000", "kestro 3.000"}},
      {"set back in between, synced",
       [](StartOptions& start, std::int64_t const& now_ns) {
         start.wallClock = [&now_ns] {
           return kAt + now_ns - (now_ns < 1500 * kMs ? 0 : kSecond * 60);
         };
       },
       {"me 0.000", "me 1.000", "me -58.000", "me -57.000"},
       "me",
       record::SyncOptions::kImage},
      {"as given, where it is known",
       [](StartOptions& start, std::int64_t const&) {
         start.captured = [](std::int64_t time_ns) -> std::optional<record::CaptureTime> {
           if (time_ns == 7 * kSecond) return std::nullopt;
           return record::CaptureTime{kAt + time_ns * 2, true};
         };
       },
       {"me 10.000", "me 12.000", "me", "me 16.000"},
       "me"},
      {"none",
       [](StartOptions& start, std::int64_t const&) { start.clock = StartOptions::kNone; },
       {"", "", "", ""}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RecorderSession s({VideoTrack()}, true);
    std::int64_t now_ns = 0;
    s.options.segments.time_ns = kSecond;
    s.options.sync.mode = c.sync;
    s.options.tags.isft = c.isft;
    c.choose(s.options.start, now_ns);
    ASSERT_TRUE(s.Open()) << s.why.text;
    for (int i = 0; i < 100; ++i, now_ns += 40 * kMs)
      EXPECT_EQ(s.Push(0, Picture(i), 5 * kSecond + now_ns, i % 5 == 0), record::Code::kOk) << i;
    EXPECT_TRUE(s.recorder->Stop());
    std::vector<std::string> starts;
    for (std::string const name : {"cam-001.avi", "cam-002.avi", "cam-003.avi", "cam-004.avi"}) {
      auto const file = s.storage.Read(name);
      Software const software = file->ReadSoftware();
      starts.push_back(software.name.substr(0, software.name.find(' ')));
      char text[32];
      if (software.start)
        starts.back() +=
            (std::snprintf(text, sizeof text, " %.3f", double(software.start->time_ns - kAt) / 1e9),
             text);
    }
    EXPECT_EQ(starts, c.starts);
  }
}

}  // namespace
}  // namespace kestro::test
