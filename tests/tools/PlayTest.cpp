// kestro-avi play, compared with the index.
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

#include "EveryKind.h"

namespace kestro::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

// Track, time and duration in ms, size, key frame, last of its track.
using Line = std::tuple<int, std::int64_t, std::int64_t, std::size_t, bool, bool>;
using Lines = std::vector<Line>;
enum { kTrack, kTime, kDuration, kBytes, kKey, kEnd };

class PlayTest : public EveryKind {
 protected:
  // Runs the verb; the sequence numbers of a track grow by 1, or in back play, which passes two
  // packets, by 3.
  Lines Play(std::string const& arguments, int code = 0) {
    Result const result = Run("play --json " + arguments);
    EXPECT_EQ(result.code, code) << result.err;
    Lines lines;
    std::istringstream text(result.out);
    std::map<int, int> last;
    bool const back = arguments.find("back") != arguments.npos;
    for (std::string one; std::getline(text, one);) {
      json const j = json::parse(one);
      if (j.contains("event")) continue;
      EXPECT_EQ(j.size(), 7u);
      lines.emplace_back(j["track"], j["pts_ms"], j["duration_ms"], j["size"], j["key"], j["eos"]);
      auto const [seq, first] = last.emplace(j["track"], j["seq"]);
      int const step = j["seq"].get<int>() - seq->second;
      EXPECT_TRUE(first || step == 1 || (step == 3 && back)) << step;
      seq->second = j["seq"];
    }
    return lines;
  }

  // What play should print, by the index and the durations of each track's chunks.
  Lines Expected(std::string const& name, std::vector<std::int64_t> const& duration_us) {
    Lines lines;
    avi::AviFile const avi(At(name));
    std::vector<std::int64_t> count(avi.Tracks().size());
    for (avi::IndexEntry const& entry : Entries(name)) {
      auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
      std::int64_t const n = count[track]++, each = duration_us[track];
      bool const key =
          (entry.flags & avi::IndexEntry::kKey) != 0 || entry.id >> 16 == ('w' | 'b' << 8);
      bool const end =
          static_cast<std::uint64_t>(count[track]) == avi.Tracks()[track].indexedChunks;
      lines.emplace_back(track, n * each / 1000, each / 1000, entry.size, key, end);
    }
    return lines;
  }
};

template <class Condition>
Lines Only(Lines lines, Condition condition) {
  lines.erase(std::remove_if(lines.begin(), lines.end(), [&](auto& l) { return !condition(l); }),
              lines.end());
  return lines;
}
bool IsVideo(Line const& line) { return std::get<kTrack>(line) == 0; }
bool IsKey(Line const& line) { return IsVideo(line) && std::get<kKey>(line); }

// Key frames as back play delivers them.
Lines Back(Lines keys) {
  std::reverse(keys.begin(), keys.end());
  std::get<kEnd>(keys.front()) = false;
  std::get<kEnd>(keys.back()) = true;
  return keys;
}

TEST_F(PlayTest, ListsWhatTheIndexSaysInEveryMode) {
  struct {
    std::string inputs;
    std::int64_t frame_us, audio_us;
  } const clips[] = {{"media/clip25.h264 media/stereo48k.wav", 40000, 20000},
                     {"media/clip-noaud.h264 media/mono8k.wav", 41666, 40000},
                     {"media/clip25.h264", 40000, 0}};
  for (auto const& clip : clips) {
    SCOPED_TRACE(clip.inputs);
    ASSERT_EQ(Run("record --force -o a.avi " + clip.inputs).code, 0);
    Lines const all = Expected("a.avi", {clip.frame_us, clip.audio_us});
    Lines const keys = Only(all, IsKey), back = Back(keys);
    EXPECT_EQ(Play("a.avi"), all);
    EXPECT_EQ(Play("--preload 64K a.avi"), all);
    EXPECT_EQ(Play("--mode video a.avi"), Only(all, IsVideo));
    EXPECT_EQ(Play("--mode back a.avi"), back);
    EXPECT_EQ(Play("--mode fast a.avi"), Back(back));
    Lines const audio = Only(all, [](Line const& line) { return !IsVideo(line); });
    if (!audio.empty()) {
      EXPECT_EQ(Play("--mode audio a.avi"), audio);
    }
    Result const text = Run("play a.avi");
    EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), long(all.size()) + 1);
    EXPECT_THAT(text.err, HasSubstr(std::to_string(all.size()) + " packets"));
  }
}

// They are counted without text and motion JPEG, which cannot be played.
TEST_F(PlayTest, SwitchesBetweenVideoTracks) {
  Make("a.avi");
  Lines const all = Expected("a.avi", std::vector<std::int64_t>(kTracks, 40000));
  for (int video : {kH264, kHevc}) {
    SCOPED_TRACE(video);
    auto const played = [video](Line const& line) {
      int const track = std::get<kTrack>(line);
      return track == video || track == kAudio || track == kMono;
    };
    EXPECT_EQ(Play("--video " + std::to_string(video) + " a.avi"), Only(all, played));
  }
  // The demuxer knows this handler, but has no media for it.
  Write("known.avi", Replaced(FileText(At("a.avi")), "vidsMJPG", "vidsmjpg"));
  Expect(
      "play --video 2",
      {{"a.avi", 2,
        "2 video tracks that can be played; track 5 (video, handler \"MJPG\") is not played: the "
        "demuxer does not play motion JPEG"},
       {"a.avi", 2, "track 4 (text, handler \"\") is not played: the demuxer does not play"},
       {"known.avi", 2, ""}});
  EXPECT_EQ(Play("--video 1 known.avi").size(), 30u);
}

TEST_F(PlayTest, PartsAndSeeks) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  struct {
    char const* arguments;
    std::vector<std::int64_t> times;  // of the video packets
    int code = 0;
  } const cases[] = {
      {"--mode video --from 1.9 --to 1.12", {1000, 1040, 1080, 1120}},
      {"--from 2 --to 2.1", {2000, 2040, 2080}},
      {"--from 3.5 --to 3.0", {3000}},
      {"--mode fast --from 0.5 --to 2.5", {0, 1000, 2000}},
      {"--mode fast --from 99", {3000}, 1},
      {"--mode back --from 2.5", {2000, 1000, 0}},
      {"--mode back --from 3 --to 1", {3000, 2000, 1000}},
      {"--mode back --to 2.5", {3000}},
      {"--mode fast --seek 0 --every 4", {0, 1000, 2000, 3000, 0, 1000, 2000, 3000}},
      {"--mode fast --seek 1 --seek 9 --every 99", {0, 1000, 2000, 3000, 1000, 2000, 3000, 3000}},
      {"--mode back --from 1 --seek 3.99 --every 2", {1000, 0, 3000, 2000, 1000, 0}},
      {"--mode video --from 1.5 --seek 0.99 --seek 2.99 --seek 9 --every 2 --to 3.04",
       {1000, 1040, 0, 40, 2000, 2040, 3000, 3040}},
      {"--seek 3 --every 6 --to 3.08", {0, 40, 3000, 3040, 3080}},
  };
  for (auto const& c : cases) {
    std::vector<std::int64_t> times;
    for (Line const& line : Play(std::string(c.arguments) + " a.avi", c.code))
      if (IsVideo(line)) times.push_back(std::get<kTime>(line));
    EXPECT_EQ(times, c.times) << c.arguments;
  }
  EXPECT_THAT(Run("play --seek 0:01 --to 1 a.avi").out, HasSubstr("key\nseek to 1.000 s\n"));
}

TEST_F(PlayTest, SaysWhatItCannotPlay) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  ASSERT_EQ(Run("record -o audio.avi media/mono8k.wav").code, 0);
  MakeUnusual("a.avi");
  std::string const a = FileText(At("a.avi"));
  std::string parts = a + a.substr(0, 8) + "AVIX" + a.substr(a.find("movi") - 8);
  Put(parts, a.size() + 4, unsigned(parts.size() - a.size()) - 8);
  Write("parts.avi", parts);
  Damage("a.avi", "lost.avi", 9, kOffset, 1000);
  Damage("a.avi", "long.avi", 0, kSize, 5000);
  Damage("a.avi", "far.avi", 9, kOffset, 0xF0000000);
  Write("foreign.avi", Replaced(a, "vidsH264", "vidsXVID"));
  Expect("play",
         {{"text.avi", 4, "not a RIFF file: no RIFF at offset 0"},
          {"wave.avi", 4, "\"WAVE\" at offset 8, not AVI"},
          {"nostrl.avi", 4, "no strl in the list hdrl at offset 12"},
          {"noindex.avi", 4, "no index (idx1) at offset 645812"},
          {"cut.avi", 4, "no index (idx1) at offset 30320, after the data: the recording was cut"},
          {"empty.avi", 4, "the index at offset 645812 is empty"},
          {"nowhere.avi", 4, "index at offset 645812: its first entry"},
          {"relative.avi", 4, "relative to the movi list at offset 312"},
          {"foreign.avi", 4, "track 0 (video, handler \"XVID\") is unknown"},
          {"lost.avi", 1, "the chunk at offset 1000 does not belong to this track"},
          {"long.avi", 1, "has 3025 bytes, 5000 were delivered"},
          {"far.avi", 1, "reading failed at offset 4026531848"},
          {"parts.avi", 1, "has 2 RIFF parts"},
          {"--to 1 parts.avi", 0, ""},
          {"--mode fast flagged.avi", 1, "flags every frame of track 0"},
          {"--mode back flagged.avi", 1, "flags every frame of track 0"},
          {"flagged.avi", 0, "250 packets"},
          {"missing.avi", 3, "missing.avi: No such file"},
          {"--video 1 a.avi", 2, "1 video track"},
          {"--mode back audio.avi", 2, "no such track"},
          {"--from 1:x a.avi", 2, "--from"},
          {"--every 0 a.avi", 2, "--every"}});
}

// The demuxer and the reader of the tool agree on them. In an index before the data, the first
// entry that is all zeros ends it.
TEST_F(PlayTest, LeavesOutEntriesOfZeros) {
  std::string const record = "record --force media/clip25.h264 -o a.avi";
  for (std::string const sync : {"off", "in-place --reserve-time 10"}) {
    ASSERT_EQ(Run(record + " --sync " + sync).code, 0);
    std::size_t const whole = Play("a.avi").size();
    for (unsigned const fields : {1u, 12u, 15u}) {
      std::string bytes = FileText(At("a.avi"));
      for (unsigned field = 0; field < 4; ++field)
        if ((fields >> field & 1) != 0) Put(bytes, bytes.find("idx1") + 8 + 16 * 7 + 4 * field, 0);
      Write("zeros.avi", bytes);
      Lines const lines = Play("zeros.avi");
      EXPECT_EQ(lines, Expected("zeros.avi", {40000})) << fields << " " << sync;
      EXPECT_EQ(lines.size(), fields == 15 && sync != "off" ? 7u : whole - 1)
          << fields << " " << sync;
    }
  }
}

// Without pacing it would reach the end.
TEST_F(PlayTest, PacesAndStopsCleanly) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264").code, 0);
  Result const stopped =
      Shell("timeout --preserve-status -s INT 2 " TEST_TOOL " play --realtime --json a.avi");
  EXPECT_EQ(stopped.code, 130) << stopped.err;
  EXPECT_EQ(stopped.out.substr(stopped.out.size() - 2), "}\n");
}

}  // namespace
}  // namespace kestro::tool
