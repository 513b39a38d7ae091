// How the times of inputs become those of a recording, which only counts frames and samples.
#include <algorithm>
#include <array>
#include <cstring>

#include "Command.h"
#include "media/FrameClock.h"
#include "media/FrameRate.h"
#include "media/OpenGroups.h"
#include "media/Timeline.h"
#include "media/libav/AudioBlocks.h"
#include "media/libav/ClockJumps.h"
#include "media/libav/InputSession.h"
#include "media/libav/PacketTimes.h"
#include "media/libav/SubtitleDecoder.h"

namespace kestro::tool {
namespace {

constexpr std::int64_t kMs = 1000000;

// Audio at 1000 Hz, so that a block has 40 samples and a sample takes 1 ms. In the expectation
// "10a" is 10 ms of the first piece that was added, '-' silence; '|' ends a block.
struct AudioCase {
  char const* name;
  std::vector<std::pair<int, int>> pieces;  // time and length in ms
  char const* audio;
  char const* report = "";
  int limit_ms = -1;
};

AudioCase const kAudios[] = {
    {"blocks", {{0, 50}, {50, 50}}, "40a|10a30b|20b|"},
    {"begins a little late, and what follows too", {{5, 40}, {45, 40}}, "40a|40b|"},
    {"begins late", {{6, 40}}, "6-34a|6a|", "late 6"},
    {"begins a little early", {{-5, 40}, {35, 40}}, "40a|40b|"},
    {"begins early", {{-70, 50}, {-20, 60}}, "40b|", "early 70"},
    {"begins early by a part", {{-50, 60}}, "10a|", "early 50"},
    {"small gap", {{0, 30}, {38, 10}}, "30a10b|"},
    {"gap at the end", {{0, 30}, {71, 9}}, "30a10-|31-9b|", "0.041 s of missing audio at 0.030 s"},
    {"jitter at the end", {{0, 30}, {30, 40}, {88, 10}}, "30a10b|30b10c|"},
    {"late for less than a second", {{0, 50}, {110, 50}, {100, 50}}, "40a|10a30b|20b20c|30c|"},
    {"gap",
     {{0, 30}, {90, 10}, {100, 1100}},
     "30a10-|40-|10-10b20c|40c|40c|40c|40c|",
     "0.060 s of missing audio at 0.030 s",
     280},
    {"overlap", {{0, 80}, {20, 70}}, "40a|40a|10b|", "0.060 s of overlapping audio at 0.080 s"},
    {"small gap at the end",
     {{0, 10}, {31, 10}},
     "10a21-9b|1b|",
     "0.021 s of missing audio at 0.010 s"},
    {"clock drifts", {{0, 10}, {18, 10}, {36, 10}, {54, 10}}, "10a10b10c10-|14-10d|", "drift 24"},
    {"limit inside a block", {{0, 90}}, "40a|15a|", "", 55},
    {"limit at a block", {{0, 90}}, "40a|40a|", "", 80},
};

TEST(AudioBlocks, KeepStep) {
  for (AudioCase const& c : kAudios) {
    SCOPED_TRACE(c.name);
    AudioBlocks blocks(1000, 2, Selection{0, c.limit_ms < 0 ? -1 : c.limit_ms * kMs});
    std::int16_t letter = 'a';
    for (auto const& [time, length] : c.pieces)
      blocks.Add(time * kMs, Samples(static_cast<std::size_t>(length) * 2, letter++));
    blocks.End();
    std::string audio;
    std::int64_t samples = 0;
    while (blocks.Ready()) {
      EXPECT_EQ(blocks.NextTime_ns(), samples * kMs);
      Samples const block = blocks.Take();
      samples += static_cast<std::int64_t>(block.size()) / 2;
      for (std::size_t i = 0, begin = 0; i < block.size(); i += 2) {
        if (i + 2 < block.size() && block[i + 2] == block[begin]) continue;
        audio += std::to_string((i + 2 - begin) / 2) + (block[i] == 0 ? '-' : char(block[i]));
        begin = i + 2;
      }
      audio += '|';
    }
    EXPECT_EQ(audio, c.audio);
    std::string report;
    auto const add = [&report](char const* what, std::int64_t length_ns) {
      if (length_ns != 0) report += what + std::to_string(length_ns / kMs);
    };
    add("late ", blocks.Late_ns());
    add("early ", blocks.Early_ns());
    add("drift ", blocks.Drift_ns());
    for (GapReport* gaps : {&blocks.Gaps(), &blocks.Overlaps()})
      for (Notice const& line : gaps->Lines()) report += line.text;
    EXPECT_EQ(report.substr(0, report.find(';')), c.report);
  }
}

// Programs get each gap when it is found, people the first ones at the end.
TEST(GapReport, ReportsEachGapOnce) {
  std::pair<Gap, char const*> const cases[] = {
      {{Gap::kCut, 2 * kMs, 40 * kMs}, "gap at_ms=2 length_ms=40 action=cut"},
      {{Gap::kShift, 0, kMs}, "gap at_ms=0 length_ms=1 action=shift"},
      {{Gap::kSilence, 0, kMs}, "gap at_ms=0 length_ms=1 action=silence"},
      {{Gap::kTrimmed, 0, kMs}, "overlap at_ms=0 length_ms=1 action=cut"},
      {{Gap::kSegment, 0, 50 * kMs, 30 * kMs}, "gap at_ms=0 length_ms=50 action=segment cut_ms=30"},
  };
  GapReport report("frames");
  std::string last;
  for (auto const& [gap, expected] : cases) {
    report.Add(gap);
    Notices const taken = report.Take();
    ASSERT_EQ(taken.size(), 1u) << expected;
    std::string text = taken[0].event;
    for (Notice::Field const& field : taken[0].fields)
      text += std::string(" ") + field.key + "=" +
              (field.isText ? field.text : std::to_string(field.number));
    EXPECT_EQ(text, expected);
    EXPECT_FALSE(taken[0].reported) << expected;
    last = taken[0].text;
  }
  EXPECT_EQ(last,
            "0.050 s of frames at 0.000 s; 0.030 s taken out of all tracks, the rest was recorded "
            "before the video came back; a new file starts at the next key frame");
  for (int i = 0; i < 8; ++i) report.Add({Gap::kCut, 0, 20 * kMs});
  Notices const lines = report.Lines();
  EXPECT_EQ(lines.size(), 11u);
  EXPECT_EQ(lines.back().text, "0.060 s more of frames in 3 places");
  for (Notice const& line : lines) EXPECT_TRUE(line.reported) << line.text;
}

// Frames at 25 fps. In the expectation "3" is a frame that is three frames later than the counted
// time, and '!' a gap before it; frames that are like the one before are left out.
struct FrameCase {
  char const* name;
  int count;
  int (*time_ms)(int frame);  // in the order in which the frames are shown
  char const* frames;
  bool varies = false;
};

FrameCase const kFrames[] = {
    {"steady", 300, [](int n) { return n * 40; }, "0"},
    {"one lost frame", 300, [](int n) { return (n + (n >= 60)) * 40; }, "0 !1"},
    {"two gaps close together", 300, [](int n) { return (n + 3 * (n >= 60) + 2 * (n >= 70)) * 40; },
     "0 !3 !5"},
    {"a gap at the end", 60, [](int n) { return (n + (n >= 50)) * 40; }, "0 !1"},
    {"made up within a second", 300,
     [](int n) { return n * 40 + (n >= 60 && n < 70 ? 400 - (n - 60) * 40 : 0); }, "0"},
    {"jitter", 300, [](int n) { return n * 40 + n * 7919 % 17; }, "0"},
    {"a slow clock", 1200, [](int n) { return n * 40 + n / 15; }, "0 1 2"},
    {"varies", 300, [](int n) { return (n + n / 7) * 40; }, "0 1", true},
    {"starts to vary", 999, [](int n) { return (n + std::max(0, n - 700) / 5) * 40; }, "0 !1",
     true},
};

TEST(FrameClock, FindsLostFrames) {
  for (FrameCase const& c : kFrames) {
    for (std::size_t depth : {0, 2}) {  // with it, each third frame comes two frames early
      SCOPED_TRACE(std::string(c.name) + ", depth " + std::to_string(depth));
      FrameClock clock({25, 1}, {1, 1}, depth);
      std::string frames, last;
      int taken = 0;
      auto const take = [&] {
        for (; clock.Ready(); ++taken) {
          FrameClock::Frame const frame = clock.Take();
          EXPECT_EQ(frame.time_ns, c.time_ms(taken) * kMs);
          auto const text = std::to_string((frame.off_ns + 20 * kMs - 1) / (40 * kMs));
          if (text == last) continue;
          frames += (frames.empty() ? "" : " ") + std::string(frame.gap ? "!" : "") + text;
          last = text;
        }
      };
      for (int i = 0; i < c.count; ++i) {
        static constexpr int kTurn[] = {2, -1, -1};
        clock.Add(c.time_ms(depth == 0 ? i : i + kTurn[i % 3]) * kMs);
        take();
      }
      clock.End();
      take();
      EXPECT_EQ(taken, c.count);
      EXPECT_EQ(clock.Varies(), c.varies);
      EXPECT_EQ(c.varies ? frames.substr(0, std::strlen(c.frames)) : frames, c.frames);
    }
  }
}

TEST(Timeline, TakesGapsOutOfAllTracks) {
  Timeline timeline({});
  timeline.speed = {1, 2};
  timeline.Settle(100);
  EXPECT_EQ(timeline.Cut(50, 150), 50) << "what is settled stays";
  EXPECT_EQ(timeline.Cut(200, 230), 30);
  EXPECT_EQ(timeline.Cut(220, 230), 0);
  EXPECT_TRUE(timeline.Settled(230));
  EXPECT_FALSE(timeline.Settled(231));
  std::pair<std::int64_t, std::int64_t> const times[] = {{-10, -5}, {100, 50}, {120, 50}, {150, 50},
                                                         {190, 70}, {215, 75}, {330, 125}};
  for (auto const& [input, audio] : times) {
    EXPECT_EQ(timeline.Audio_ns(input), audio) << input;
    EXPECT_EQ(timeline.Video_ns(input), input - timeline.CutBefore_ns(input)) << input;
  }
  // What follows a gap is recorded where the gap began.
  std::pair<std::int64_t, std::int64_t> const recorded[] = {{-10, -10}, {99, 99},   {100, 150},
                                                            {149, 199}, {150, 230}, {250, 330}};
  for (auto const& [time, input] : recorded) EXPECT_EQ(timeline.Input_ns(time), input) << time;
  using Kept = std::vector<std::pair<std::int64_t, std::int64_t>>;
  EXPECT_EQ(timeline.Kept(90, 240), (Kept{{90, 100}, {150, 200}, {230, 240}}));
  EXPECT_EQ(timeline.Kept(110, 140), Kept());
  EXPECT_EQ(timeline.Kept(140, 160), (Kept{{150, 160}}));
}

// Two streams of packets of 100 ms; the second lags in the file.
TEST(ClockJumps, MoveAllStreams) {
  ClockJumps jumps;
  auto const correct = [&jumps](int stream, std::int64_t time_ms) {
    AVPacket packet{};
    packet.stream_index = stream;
    packet.pts = packet.dts = time_ms;
    packet.duration = 100;
    jumps.Correct(packet, {1, 1000});
    EXPECT_EQ(packet.pts, packet.dts);
    return packet.pts;
  };
  for (int i = 0; i < 50; ++i) EXPECT_EQ(correct(i % 2, i / 2 * 100), i / 2 * 100);
  EXPECT_EQ(correct(0, 3000), 3000) << "a gap is no jump";
  EXPECT_EQ(correct(0, 50), 3100);
  EXPECT_EQ(correct(1, 2500), 2500) << "its packets from before the jump follow";
  EXPECT_EQ(correct(0, 150), 3200);
  EXPECT_EQ(correct(1, 60), 3110);
  EXPECT_EQ(jumps.Count(), 1u);
  EXPECT_EQ(correct(0, 36000000), 3300) << "ten hours ahead";
  EXPECT_EQ(jumps.Describe(), "its clock jumps back by 3.050 s at 3.100 s, and 1 more time");
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(correct(2, 1000000000 + i * 100), 3300 + i * 100) << "it has its own clock";
    EXPECT_EQ(correct(0, 36000100 + i * 100), 3400 + i * 100);
  }
  EXPECT_EQ(jumps.Count(), 3u);
}

TEST(PacketTimes, AreDroppedIfWild) {
  constexpr std::int64_t kNone = AV_NOPTS_VALUE, kHour = 3600000, kYear = 8766 * kHour;
  using Times = std::array<std::int64_t, 3>;  // dts, pts and duration in ms
  std::pair<Times, Times> const cases[] = {
      {{55 * kYear, 55 * kYear + kHour, 24 * kHour}, {55 * kYear, 55 * kYear + kHour, 24 * kHour}},
      {{0, kHour + 1, 24 * kHour + 1}, {0, kNone, 0}},
      {{kNone, -101 * kYear, -1}, {kNone, kNone, 0}},
      {{INT64_MAX, 5, INT64_MAX}, {kNone, 5, 0}},
      {{5, -INT64_MAX, 0}, {5, kNone, 0}},
  };
  for (auto const& [times, expected] : cases) {
    AVPacket packet{};
    packet.dts = times[0], packet.pts = times[1], packet.duration = times[2];
    DropWildTimes(packet, {1, 1000});
    EXPECT_EQ((Times{packet.dts, packet.pts, packet.duration}), expected) << times[0];
  }
}

// How many packets wait for the level, which decides how much memory a track holds.
TEST(StepFinder, WaitsOnlySoLong) {
  struct {
    char const* name;
    int (*time_ms)(int packet);  // counted are 40 ms
    std::size_t most;
  } const cases[] = {
      {"steady", [](int n) { return n * 40; }, 1},
      {"off for hours", [](int n) { return n * 40 + 25 * (n > 50); }, 26},
      {"stands still", [](int) { return 0; }, 251},
      {"runs backwards", [](int n) { return -n * 40; }, 26},
  };
  for (auto const& c : cases) {
    StepFinder finder(18 * kMs);
    std::size_t waiting = 0, most = 0;
    for (int i = 0; i < 100000; ++i) {
      finder.Add(c.time_ms(i) * kMs, (c.time_ms(i) - i * 40) * kMs);
      most = std::max(most, ++waiting);
      for (; finder.Ready(); --waiting) finder.Pop();
    }
    EXPECT_EQ(most, c.most) << c.name;
  }
}

// Leading frames, by their position, of key frames of all kinds.
TEST(OpenGroups, LeadOnlyWithReferences) {
  struct {
    std::optional<stream::NalCodec> codec;
    int key, frame;  // first byte of the slice's header
    bool leads;
  } const cases[] = {
      {stream::NalCodec::kH264, 0x65, 0x01, false}, {stream::NalCodec::kH264, 0x61, 0x01, true},
      {stream::NalCodec::kHevc, 42, 16, true},      {stream::NalCodec::kHevc, 42, 18, true},
      {stream::NalCodec::kHevc, 38, 12, false},     {std::nullopt, 0xFF, 0xD8, false},
  };
  for (auto const& c : cases) {
    OpenGroups groups(c.codec);
    auto const leads = [&groups](int header, bool key, std::int64_t time_ns) {
      Bytes const frame{0, 0, 0, 1, static_cast<std::uint8_t>(header), 1, 2, 3};
      return groups.Leads(frame.data(), frame.size(), key, time_ns);
    };
    EXPECT_FALSE(leads(c.key, true, 100)) << c.key;
    EXPECT_EQ(leads(c.frame, false, 60), c.leads) << c.frame;
    EXPECT_FALSE(leads(c.frame, false, 140)) << c.frame;
  }
}

using StretchTest = Command;

TEST_F(StretchTest, MeetsRatesOfManyDigits) {
  for (char const* rate : {"24000/1001", "23.976024", "59.9400599", "25.1234"}) {
    SCOPED_TRACE(rate);
    InputOptions options;
    options.rate = ParseRate(rate);
    InputSession session({At("media/clip25.h264"), At("media/stereo48k.wav")}, options, {});
    TimedPacket packet;
    std::int64_t audio_ns = 0;
    for (std::size_t track = 0; session.Next(track, packet);)
      if (track == 1) audio_ns += packet.duration_ns;
    base::Fraction const speed = PlayedSpeed(options.rate);
    EXPECT_NEAR(static_cast<double>(audio_ns),
                3e9 * static_cast<double>(speed.num) / static_cast<double>(speed.den), 1e6);
    EXPECT_THAT(session.Findings(), testing::IsEmpty());
  }
}

TEST(Text, IsPlain) {
  std::pair<char const*, char const*> const texts[] = {
      {"a, b", "a, b"},
      {"{\\i1}a{\\i0} b", "a b"},
      {"one\\Ntwo\\nthree\\hfour", "one\ntwo\nthree four"},
      {"{comment}a", "a"},
      {"{open", "{open"},
      {"\\{a\\} {}b\\\xE2\x81\xA0Nc", "{a} b\\Nc"},
      {"C:\\dir\r\\N", "C:\\dir"},
      {"", ""},
  };
  for (auto const& [in, out] : texts)
    EXPECT_EQ(PlainText(std::string("0,1,Default,,0,0,0,,") + in, true), out);
  EXPECT_EQ(PlainText("0,1,Default,,0,0,0,,{text} {\\an8}", false), "{text} ");
  EXPECT_EQ(PlainText("no event", true), "");
}

// The place of a text: the number of video frames before it.
using TextTest = Command;

TEST_F(TextTest, PrecedesTheNearestFrame) {
  Write("a.jsonl",
        "{\"pts_ms\":1019,\"text\":\"c\"}\n\n{\"pts_ms\":0,\"text\":\"a\"}\n"
        "{\"pts_ms\":1021,\"text\":\"d\"}\r\n{\"pts_ms\":1000,\"text\":\"b\"}\n"
        "{\"pts_ms\":-50,\"text\":\"x\"}\n{\"pts_ms\":3990.5,\"text\":\"e\"}\n"
        "{\"pts_ms\":500,\"text\":\"\"}\n{\"pts_ms\":4100,\"text\":\"f\"}");
  Write("b.srt", "1\n00:00:00,990 --> 00:00:01,500\n<i>s</i>\n\n");
  struct {
    int start_ms, duration_ms;
    char const* places;
    std::size_t findings;
  } const cases[] = {
      {0, -1, "a0 s25 b25 c25 d26 e100 f100 ", 1},
      {1000, -1, "b0 c0 s0 d1 e75 f75 ", 1},
      {1000, 3000, "b0 c0 s0 d1 ", 0},
      {1500, 1000, "b0 c0 s0 d1 ", 0},
      {3000, -1, "e25 f25 ", 1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.places);
    Selection selection;
    selection.start_ns = std::int64_t{1000000} * c.start_ms;
    if (c.duration_ms >= 0) selection.duration_ns = std::int64_t{1000000} * c.duration_ms;
    InputSession session(
        {At("a.jsonl"), At("media/clip25.h264"), At("b.srt"), At("media/mono8k.wav")}, {},
        selection);
    std::string order, places;
    for (TrackInfo const& track : session.Tracks()) order += std::to_string(track.codec) + " ";
    EXPECT_EQ(order, "0 3 4 4 ");
    TimedPacket packet;
    int frames = 0;
    for (std::size_t track = 0; session.Next(track, packet); frames += track == 0)
      if (track >= 2)
        places +=
            std::string(packet.data.begin(), packet.data.end()) + std::to_string(frames) + " ";
    EXPECT_EQ(places, c.places);
    EXPECT_EQ(session.Findings().size(), c.findings);
  }
}

}  // namespace
}  // namespace kestro::tool
