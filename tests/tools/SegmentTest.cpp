// Recordings of several files.
#include "Command.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

class SegmentTest : public Command {
 protected:
  // A track of all files, one behind the other.
  std::string Whole(std::vector<std::string> const& files, int track) {
    std::string whole;
    for (std::string const& file : files) whole += Payload(file, track);
    return whole;
  }
  std::string Pictures(std::vector<std::string> const& files, int track) {
    std::string whole;
    for (std::string const& file : files) {
      fs::remove(At("p.mjpeg"));  // a track may be empty
      Run("extract --track " + std::to_string(track) + ":p.mjpeg " + file);
      whole += FileText(At("p.mjpeg"));
    }
    return whole;
  }
  // All blocks of a sound track but the last are as long as the first.
  void ExpectBlocks(std::string const& file, int track) {
    std::vector<unsigned> sizes;
    AviFile(At(file)).ForEachEntry([&](IndexEntry const& entry) {
      if (TrackOfCode(entry.id) == track) sizes.push_back(entry.size);
    });
    for (std::size_t i = 0; i < sizes.size(); ++i)
      EXPECT_TRUE(sizes[i] == sizes[0] || (i + 1 == sizes.size() && sizes[i] < sizes[0])) << file;
  }
};

// The files' frames are not as long as blocks of sound, so that all cuts go through blocks.
TEST_F(SegmentTest, HoldEverythingOnceAndInStep) {
  Write(
      "t.srt",
      "1\n00:00:00,500 --> 00:00:01,000\nfirst\n\n2\n00:00:01,001 --> 00:00:02,000\nat the cut\n");
  std::string const all =
      " media/mono8k.wav media/clip2997.h264 media/stereo48k.wav motion.avi t.srt";
  ASSERT_EQ(Run("record --fps 15 -o motion.avi media/clip15.mjpeg").code, 0);
  struct {
    char const* name;
    std::string options, inputs;
    std::vector<std::string> files;
    int video, sound, mono;  // tracks, -1 for none
  } const cases[] = {
      {"time", "--segment-time 1 -o a%02d.avi", all, {"a01.avi", "a02.avi", "a03.avi"}, 1, 2, 0},
      {"size",
       "--segment-size 300K -o b.avi",
       all,
       {"b.avi", "b-00002.avi", "b-00003.avi"},
       1,
       2,
       0},
      {"queued",
       "--realtime --segment-time 1 -o c%d.avi",
       all,
       {"c1.avi", "c2.avi", "c3.avi"},
       1,
       2,
       0},
      {"syncs",
       "--sync callback --sync-interval 0.1 --segment-time 1.5 --isft me -o d%d.avi",
       all,
       {"d1.avi", "d2.avi"},
       1,
       2,
       0},
      {"pictures alone",
       "--segment-time 0.3 -o e%d.avi",
       " motion.avi",
       {"e1.avi", "e2.avi", "e3.avi"},
       -1,
       -1,
       -1},
      {"sound alone",
       "--segment-time 1.01 -o f%d.avi",
       " media/stereo48k.wav media/mono8k.wav",
       {"f1.avi", "f2.avi", "f3.avi"},
       -1,
       0,
       1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(Run("record --force -o whole.avi" + c.inputs).code, 0);
    Result const result = Run("record " + c.options + c.inputs);
    ASSERT_EQ(result.code, 0) << result.err;
    for (std::string const& file : c.files) EXPECT_THAT(result.err, HasSubstr(file + ": "));
    auto const tracks = static_cast<int>(AviFile(At("whole.avi")).Tracks().size());
    for (int track = 0; track < tracks; ++track) {
      bool const pictures = track == 3 || tracks == 1;
      EXPECT_EQ(pictures ? Pictures(c.files, track) : Whole(c.files, track),
                pictures ? Pictures({"whole.avi"}, track) : Payload("whole.avi", track))
          << track;
    }
    for (std::string const& file : c.files) {
      EXPECT_FALSE(fs::exists(At(file + ".sync")));
      for (int track : {c.sound, c.mono})
        if (track >= 0) ExpectBlocks(file, track);
      if (c.video < 0 || file == c.files.back()) continue;
      double const frames = AviFile(At(file)).Tracks()[static_cast<std::size_t>(c.video)].chunks;
      EXPECT_NEAR(frames * 1001 / 30000 * 8000,
                  static_cast<double>(Payload(file, c.mono).size()) / 2, 1);
    }
    EXPECT_EQ(Run("verify " + c.files[1]).code, tracks == 1 ? 0 : Run("verify whole.avi").code);
  }
}

TEST_F(SegmentTest, NamesAndFilesThatGrow) {
  std::string const input = " media/clip25.h264";
  Write("n-00002.avi", "old");
  Write("p1.avi", "old");
  ASSERT_EQ(Run("record --segment-time 1 -o n.avi" + input).code, 0);
  EXPECT_EQ(FileText(At("n-00002.avi")), "old");
  EXPECT_TRUE(fs::exists(At("n-00003.avi")) && fs::exists(At("n-00005.avi")));
  EXPECT_EQ(Run("record --force --segment-time 1 -o n.avi" + input).code, 0);
  EXPECT_EQ(FileText(At("n-00004.avi")), FileText(At("n-00005.avi")));
  Result const grown = Run("record --segment-size 1K -o g.avi" + input);
  EXPECT_EQ(grown.code, 1);
  EXPECT_THAT(grown.err, HasSubstr("g-00004.avi: is larger"));
  struct {
    char const* options;
    char const* said;
  } const refused[] = {
      {"-o p%d.avi", "p1.avi: exists"},      {"-o %d-%d.avi", "one number"},
      {"-o 100%.avi", "one number"},         {"-o x%s.avi", "one number"},
      {"-o x.avi --segment-size 0", "more"}, {"-o x.avi --segment-size 1T", "size"},
      {"-o x.avi --drop", "--realtime"}};
  for (auto const& c : refused) {
    Result const result = Run(std::string("record ") + c.options + input);
    EXPECT_EQ(result.code, 2) << c.options;
    EXPECT_THAT(result.err, HasSubstr(c.said));
  }
}

}  // namespace
}  // namespace kestro::tool
