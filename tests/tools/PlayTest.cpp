// What the verb play lists, against what the index says.
#include <nlohmann/json.hpp>
#include <sstream>

#include "EveryKind.h"

namespace kestro::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

struct Line {
  int track;
  std::int64_t pts, duration;
  std::size_t size;
  bool key, eos;

  bool operator==(Line const& o) const {
    return track == o.track && pts == o.pts && duration == o.duration && size == o.size &&
           key == o.key && eos == o.eos;
  }
};
void PrintTo(Line const& line, std::ostream* os) {
  *os << "track " << line.track << " at " << line.pts << " for " << line.duration << " ms, "
      << line.size << " bytes" << (line.key ? " key" : "") << (line.eos ? " end" : "");
}
using Lines = std::vector<Line>;

class PlayTest : public EveryKind {
 protected:
  // Runs the verb; sequence numbers must grow in every track.
  Lines Play(std::string const& arguments, int code = 0) {
    Result const result = Run("play --json " + arguments);
    EXPECT_EQ(result.code, code) << result.err;
    Lines lines;
    std::istringstream text(result.out);
    std::map<int, int> last;
    for (std::string one; std::getline(text, one);) {
      json const j = json::parse(one);
      EXPECT_EQ(j.size(), 7u);
      lines.push_back({j["track"], j["pts_ms"], j["duration_ms"], j["size"], j["key"], j["eos"]});
      auto const [seq, first] = last.emplace(lines.back().track, j["seq"]);
      EXPECT_TRUE(first || j["seq"] == seq->second + 1);
      seq->second = j["seq"];
    }
    return lines;
  }

  // What play lists of a file, by its index and the durations of its tracks' chunks.
  Lines Expected(std::string const& name, std::vector<std::int64_t> const& duration_us) {
    Lines lines;
    AviFile avi(At(name));
    std::vector<std::int64_t> count(avi.Tracks().size());
    avi.ForEachEntry([&](IndexEntry const& entry) {
      auto const track = static_cast<std::size_t>(TrackOfCode(entry.id));
      std::int64_t const n = count[track]++, each = duration_us[track];
      bool const key = (entry.flags & IndexEntry::kKey) != 0 || entry.id >> 16 == ('w' | 'b' << 8);
      bool const end = static_cast<std::uint64_t>(count[track]) == avi.Tracks()[track].chunks;
      lines.push_back(
          {static_cast<int>(track), n * each / 1000, each / 1000, entry.size, key, end});
    });
    return lines;
  }
};

template <class Condition>
Lines Only(Lines lines, Condition condition) {
  lines.erase(std::remove_if(lines.begin(), lines.end(), [&](auto& l) { return !condition(l); }),
              lines.end());
  return lines;
}
bool IsVideo(Line const& line) { return line.track == 0; }
bool IsSound(Line const& line) { return !IsVideo(line); }
bool IsKey(Line const& line) { return line.track == 0 && line.key; }

TEST_F(PlayTest, ListsWhatTheIndexSaysInEveryMode) {
  struct {
    char const* inputs;
    std::int64_t frame_us, sound_us;
  } const clips[] = {
      {"media/clip25.h264 media/stereo48k.wav", 40000, 20000},
      {"media/clip-noaud.h264 media/mono8k.wav", 41666, 40000},
      {"media/clip25.h264", 40000, 0},
  };
  for (auto const& clip : clips) {
    SCOPED_TRACE(clip.inputs);
    ASSERT_EQ(Run(std::string("record --force -o a.avi ") + clip.inputs).code, 0);
    Lines const all = Expected("a.avi", {clip.frame_us, clip.sound_us});
    Lines keys = Only(all, IsKey);
    EXPECT_EQ(Play("a.avi"), all);
    EXPECT_EQ(Play("--preload 64K a.avi"), all);
    EXPECT_EQ(Play("--mode video a.avi"), Only(all, IsVideo));
    keys.back().eos = true;
    EXPECT_EQ(Play("--mode fast a.avi"), keys);
    std::reverse(keys.begin(), keys.end());
    keys.front().eos = false;
    keys.back().eos = true;
    EXPECT_EQ(Play("--mode back a.avi"), keys);
    if (clip.sound_us != 0) {
      EXPECT_EQ(Play("--mode audio a.avi"), Only(all, IsSound));
    }
    Result const text = Run("play a.avi");
    EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), long(all.size()) + 1);
    EXPECT_THAT(text.err, HasSubstr(std::to_string(all.size()) + " packets"));
  }
}

// Video tracks are counted among those that can be played; text and motion JPEG cannot.
TEST_F(PlayTest, SwitchesBetweenVideoTracks) {
  Make("a.avi");
  Lines const all = Expected("a.avi", std::vector<std::int64_t>(kTracks, 40000));
  for (int video : {kH264, kHevc}) {
    std::string const arguments = "--video " + std::to_string(video) + " a.avi";
    auto const chosen = [video](Line const& l) { return l.track == video; };
    auto const played = [&](Line const& l) {
      return chosen(l) || l.track == kSound || l.track == kMono;
    };
    EXPECT_EQ(Play(arguments), Only(all, played));
    Lines keys = Only(all, [&](Line const& l) { return chosen(l) && l.key; });
    std::reverse(keys.begin(), keys.end());
    keys.back().eos = true;
    EXPECT_EQ(Play("--mode back " + arguments), keys);
  }
  Result const result = Run("play --video 2 a.avi");
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, HasSubstr("2 video tracks that can be played; track 5 (video, handler "
                                    "\"MJPG\") is left out: the demuxer plays no motion JPEG"));
  EXPECT_THAT(result.err,
              HasSubstr("track 4 (text, handler \"\") is left out: the demuxer plays no"));
  // Known to the demuxer by this handler, but without media.
  std::string known = FileText(At("a.avi"));
  known.replace(known.find("vidsMJPG") + 4, 4, "mjpg");
  Write("known.avi", known);
  EXPECT_EQ(Run("play --video 2 known.avi").code, 2);
  EXPECT_EQ(Play("--video 1 known.avi").size(), 30u);
}

TEST_F(PlayTest, PartsAndSeeks) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  struct {
    char const* arguments;
    std::vector<std::int64_t> times;  // of the video packets
  } const cases[] = {
      {"--mode video --from 1.9 --to 1.12", {1000, 1040, 1080, 1120}},
      {"--from 2 --to 2.1", {2000, 2040, 2080}},
      {"--from 3.5 --to 3.0", {3000}},
      {"--mode fast --from 0.5 --to 2.5", {0, 1000, 2000}},
      {"--mode fast --from 99", {3000}},
      {"--mode back --from 2.5", {2000, 1000, 0}},
      {"--mode back --from 3 --to 1", {3000, 2000, 1000}},
      {"--mode back --to 2.5", {3000}},
      {"--mode fast --seek 0 --every 4", {0, 1000, 2000, 3000, 0, 1000, 2000, 3000}},
      {"--mode fast --seek 1 --seek 9 --every 99", {0, 1000, 2000, 3000, 1000, 2000, 3000, 3000}},
      {"--mode back --from 1 --seek 3.99 --every 2", {1000, 0, 3000, 2000, 1000, 0}},
  };
  for (auto const& c : cases) {
    std::vector<std::int64_t> times;
    for (Line const& line : Play(std::string(c.arguments) + " a.avi"))
      if (IsVideo(line)) times.push_back(line.pts);
    EXPECT_EQ(times, c.times) << c.arguments;
  }
  EXPECT_THAT(Run("play --seek 0:01 --to 1 a.avi").out, HasSubstr("key\nseek to 1.000 s\n"));
}

// From wherever play stands, in one run: each seek is followed by its key frame.
TEST_F(PlayTest, SeeksToTheKeyFrameAtOrBefore) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  struct {
    std::size_t every;
    char const* mode;
    int step;
  } const runs[] = {{1, "video", 100}, {6, "normal", 700}, {6, "normal", 4500}};
  for (auto const& run : runs) {
    std::string arguments = "--every " + std::to_string(run.every) + " --mode " + run.mode;
    std::vector<int> targets;
    for (int i = 0; i <= 46; ++i) targets.push_back(i * run.step % 4600);
    for (int t : targets) arguments += " --seek " + std::to_string(t / 1000.0);
    Lines const lines = Play(arguments + " a.avi");
    for (std::size_t i = 0; i < targets.size(); ++i) {
      ASSERT_LT((i + 1) * run.every + 2, lines.size());
      auto const first = lines.begin() + static_cast<std::ptrdiff_t>((i + 1) * run.every);
      // The first packets may be sound that still sounds with the key frame.
      auto const frame = std::find_if(first, lines.end(), IsVideo);
      EXPECT_EQ(frame->pts, std::min(targets[i] / 1000, 3) * 1000) << targets[i];
      EXPECT_TRUE(frame->key);
      EXPECT_LE(frame - first, 2);
    }
  }
}

TEST_F(PlayTest, SaysWhyAFileCannotBePlayed) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  ASSERT_EQ(Run("record -o sound.avi media/mono8k.wav").code, 0);
  MakeUnusual("a.avi");
  Damage("a.avi", "lost.avi", 9, kOffset, 1000);
  Damage("a.avi", "long.avi", 0, kSize, 5000);
  Damage("a.avi", "far.avi", 9, kOffset, 0xF0000000);
  std::string foreign = FileText(At("a.avi"));
  foreign.replace(foreign.find("vidsH264") + 4, 4, "XVID");
  Write("foreign.avi", foreign);
  struct {
    char const* arguments;
    int code;
    char const* said;
  } const cases[] = {
      {"play text.avi", 4, "not a RIFF file: no RIFF at offset 0"},
      {"play wave.avi", 4, "\"WAVE\" at offset 8, not AVI"},
      {"play nostrl.avi", 4, "no strl in the list hdrl at offset 12"},
      {"play noindex.avi", 4, "no index (idx1) at offset 645812"},
      {"play cut.avi", 4,
       "no index (idx1) at offset 30320, behind the data: the recording was cut"},
      {"play empty.avi", 4, "the index at offset 645812 is empty"},
      {"play nowhere.avi", 4, "index at offset 645812: its first entry"},
      {"play relative.avi", 4, "count from the movi list at offset 312"},
      {"play foreign.avi", 4, "track 0 (video, handler \"XVID\") is unknown"},
      {"play lost.avi", 1, "the chunk at offset 1000 is not one of this track"},
      {"play long.avi", 1, "has 3025 bytes, 5000 were delivered"},
      {"play far.avi", 1, "reading failed at offset 4026531848"},
      {"play missing.avi", 3, "missing.avi: No such file"},
      {"play media", 3, "is a directory"},
      {"play --plugin missing.so a.avi", 3, "missing.so"},
      {"play --video 1 a.avi", 2, "1 video track"},
      {"play --mode back sound.avi", 2, "no such track"},
      {"play --mode audio sound.avi", 0, "100 packets"},
      {"play --mode slow a.avi", 2, "slow"},
      {"play --from 1:x a.avi", 2, "--from"},
      {"play --every 0 a.avi", 2, "--every"},
  };
  for (auto const& c : cases) {
    Result const result = Run(c.arguments);
    EXPECT_EQ(result.code, c.code) << c.arguments << "\n" << result.err;
    EXPECT_THAT(result.err, HasSubstr(c.said)) << c.arguments;
  }
}

// Unpaced, it would come to the end.
TEST_F(PlayTest, PacesAndStopsCleanly) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264").code, 0);
  Result const stopped =
      Shell("timeout --preserve-status -s INT 0.5 " TEST_TOOL " play --realtime --json a.avi");
  EXPECT_EQ(stopped.code, 130) << stopped.err;
  EXPECT_EQ(stopped.out.substr(stopped.out.size() - 2), "}\n");
}

}  // namespace
}  // namespace kestro::tool
