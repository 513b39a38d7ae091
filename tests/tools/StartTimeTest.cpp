// When recordings start, and parts of them by the clock.
#include <ctime>

#include "cli/Errors.h"
#include "tools/Command.h"
#include "verbs/FileTimes.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

// Three files of 10 s that begin at second 0, 12 and 22 of a minute; the clock of the third was
// set back by a minute for a fourth one, and a fifth has none.
TEST(FileTimes, DatesBecomeTimesInAllFilesTogether) {
  FileTimes times, none;
  std::int64_t const minute_ns = Moment::Parse("", "2026-11-22T14:57:00Z").time_ns;
  std::int64_t begin_ms = 0;
  for (int start_s : {0, 12, 22, -28, 5}) {
    avi::StartTime const start{start_s == 5 ? 5 : minute_ns + start_s * 1000000000LL, start_s != 5};
    times.Add({"cam.avi", begin_ms, 10000, start, {}, {}});
    begin_ms += 10000;
  }
  none.Add({"old.avi", 0, 10000, std::nullopt, {}, {}});
  struct {
    char const* text;
    std::int64_t begin_ms, end_ms;  // -1: refused
  } const cases[] = {
      {"5.5", 5500, 5500},
      {"2026-11-22T14:57:00Z", 0, 0},
      {"2026-11-22 15:57:05.25+01:00", 5250, 5250},
      {"2026-11-22T14:57:10Z", 10000, 10000},
      {"2026-11-22T14:57:11Z", 10000, 10000},  // between two files
      {"2026-11-22T14:57:13.5Z", 11500, 11500},
      {"2026-11-22T14:57:22Z", 20000, 20000},
      {"2026-11-22T14:57:31.999Z", 29999, 29999},
      {"2026-11-22T14:57:32Z", -1, 30000},
      {"2026-11-22T14:57:32.001Z", -1, -1},
      {"2026-11-22T14:56:32Z", 30000, 30000},  // after the clock was set back
      {"2026-11-22T14:56:50Z", 0, 40000},
      {"2026-11-22T14:56:31.999Z", -1, -1},
  };
  for (auto const& c : cases) {
    Moment const moment = Moment::Parse("--from", c.text);
    auto const call = [&](auto find, FileTimes const& files) {
      try {
        return (files.*find)(moment);
      } catch (Error const& error) {
        EXPECT_EQ(error.Code(), kUsage) << c.text;
        return std::int64_t{-1};
      }
    };
    EXPECT_EQ(call(&FileTimes::Begin_ms, times), c.begin_ms) << c.text;
    EXPECT_EQ(call(&FileTimes::End_ms, times), c.end_ms) << c.text;
    EXPECT_EQ(call(&FileTimes::Begin_ms, none), moment.date ? -1 : c.begin_ms) << c.text;
  }
}

using StartTime = Command;

TEST_F(StartTime, ComesFromTheInputs) {
  char const* const clip = " media/clip25.h264";
  ASSERT_EQ(Run("record --start-time 2026-11-22T14:57:00Z -o a.avi media/clip25.h264").code, 0);
  struct {
    std::string arguments;
    char const* start;  // of the last file; empty: none, and no isft
    char const* file = "b-1.avi";
  } const cases[] = {
      {clip, ""},
      {"media/clip25.mp4", ""},
      {"a.avi", "2026-11-22T14:57:00.000Z"},
      {"--no-start-time a.avi", ""},
      {"--start 2.5 media/mono8k.wav a.avi", "2026-11-22T14:57:02.000Z"},
      {"--segment-time 2 a.avi", "2026-11-22T14:57:02.000Z", "b-2.avi"},
      {"--start-time 2020-01-01T00:00:00Z --start 2.5 a.avi", "2020-01-01T00:00:00.000Z"},
      // Frames at 30000/1001 per second are stored at 30.
      {"--segment-time 1 --start-time 2020-01-01T00:00:00Z media/clip2997.h264",
       "2020-01-01T00:00:02.002Z", "b-3.avi"},
      {"dated.mp4", "2020-05-06T07:08:09.500Z"},
      {"unset.mp4", ""},
  };
  bool const dated = Has("ffmpeg");
  for (std::string const target :
       {"2020-05-06T07:08:09.5Z dated.mp4", "1970-01-01T00:00:00Z unset.mp4"})
    Shell(
        "ffmpeg -i media/clip25.mp4 -c copy -movflags use_metadata_tags -metadata creation_time=" +
        target);
  for (auto const& c : cases) {
    if (!dated && c.arguments.find("ed.mp4") != c.arguments.npos) continue;
    Shell("rm -f b-*");
    EXPECT_LE(Run("record -o b-%d.avi " + c.arguments).code, 1) << c.arguments;
    avi::Software const software = avi::AviFile(At(c.file)).ReadSoftware();
    EXPECT_EQ(software.start ? software.start->Text() : "", c.start) << c.arguments;
    EXPECT_EQ(software.name.empty(), *c.start == '\0') << c.arguments;
  }
  ASSERT_EQ(Shell("cat media/clip25.h264 | " TEST_TOOL " record -o live.avi -").code, 0);
  auto const live = avi::AviFile(At("live.avi")).ReadSoftware().start;
  ASSERT_TRUE(live) << "a pipe is live";
  EXPECT_NEAR(double(live->time_ns) / 1e9, double(time(nullptr)), 60);
}

TEST_F(StartTime, IsKeptAndFoundByClips) {
  setenv("TZ", "TST-2", 1);  // two hours ahead of UTC
  std::string const record = "record --segment-time 2 --start-time ";
  ASSERT_EQ(Run(record + "2026-11-22T14:57:00Z -o a-%d.avi --isft me media/clip25.h264 "
                         "media/stereo48k.wav")
                .code,
            0);
  ASSERT_EQ(Run(record + "'2026-11-22 16:57:10' -o b-%d.avi media/clip25.h264 "
                         "media/stereo48k.wav")
                .code,
            0);
  ASSERT_EQ(Run("record -o plain.avi media/clip25.h264").code, 0);
  std::string const all = " a-1.avi a-2.avi b-1.avi b-2.avi";
  EXPECT_THAT(Run("clip --list" + all).out,
              HasSubstr("       4.000        6.000  2026-11-22T14:57:10.000Z  b-1.avi\n"));
  std::string const mark =
      R"({"label": "door\nopen", "time": "2026-11-22T14:57:01.500Z", "window": )"
      R"({"from": "2026-11-22T14:56:59.000Z", "to": "2026-11-22T14:57:03.000Z"}})";
  Write("a-1.avi.keep", mark);
  Write("a-2.avi.keep", mark);
  Write("b-1.avi.keep", "torn{");
  EXPECT_THAT(Run("clip --list" + all).out,
              HasSubstr("       1.500        3.000  2026-11-22T14:57:01.500Z  door open\n"
                        "           -            -                            \n"));
  EXPECT_THAT(Replaced(Run("clip --list --json" + all).out, "\n      ", ""),
              HasSubstr("\"at_ms\": 1500,\"begin_ms\": 1500,\"end_ms\": 3000,\"files\": [  "
                        "\"a-1.avi\",  \"a-2.avi\"]"));
  struct {
    char const *arguments, *error, *start;
    int frames;
  } const cases[] = {
      // Key frames are a second apart.
      {"--from 2026-11-22T14:57:03.5Z --to 2026-11-22T14:57:11Z", "", "14:57:03.000", 50},
      {"--from '2026-11-22 16:57:08' --to '2026-11-22 16:57:11'", "", "14:57:10.000", 25},
      {"--from 2026-11-22T14:57:01Z --to 2026-11-22T14:57:05Z", "", "14:57:01.000", 75},
      {"--to 1", "", "14:57:00.000", 25},
      {"--from 2026-11-22T14:56:59Z", "cover 2026-11-22T14:57:00.000Z to 2026-11-22T14:57:14", "",
       0},
      {"--to 2026-11-22T16:57", "--to must be after --from", "", 0},
      {"--from 2026-11-22T14:57:05Z --to 2026-11-22T14:57:08Z", "nothing between these dates", "",
       0},
  };
  for (auto const& c : cases) {
    Result const result = Run(std::string("clip --force -o part.avi ") + c.arguments + all);
    EXPECT_EQ(result.code <= 1, *c.error == '\0') << c.arguments << "\n" << result.err;
    EXPECT_THAT(result.err, HasSubstr(c.error)) << c.arguments;
    if (*c.error != '\0') continue;
    avi::AviFile avi(At("part.avi"));
    avi::Software const software = avi.ReadSoftware();
    EXPECT_EQ(software.name, "me") << c.arguments;
    EXPECT_EQ(software.start ? software.start->Text() : "",
              std::string("2026-11-22T") + c.start + "Z")
        << c.arguments;
    EXPECT_EQ(avi.Tracks()[0].chunks, unsigned(c.frames)) << c.arguments;
  }
  EXPECT_THAT(Run("clip --from 2026-11-22T14:57:01Z -o x.avi plain.avi").err,
              HasSubstr("no file stores the date"));
  ASSERT_LE(Run("join -o day.avi" + all).code, 1);
  EXPECT_THAT(Run("info day.avi").out, HasSubstr("start: 2026-11-22T14:57:00.000Z"));
  ASSERT_EQ(Run("repair -o whole.avi b-2.avi").code, 0);
  EXPECT_THAT(Run("info whole.avi").out, HasSubstr("start: 2026-11-22T14:57:12.000Z"));
  unsetenv("TZ");
}

}  // namespace
}  // namespace kestro::tool
