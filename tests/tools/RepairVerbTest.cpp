// kestro-avi repair: its options, reports and exit codes.
#include <nlohmann/json.hpp>

#include "EveryKind.h"

namespace kestro::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

using RepairVerbTest = EveryKind;

// The demuxer numbers only the tracks that it knows.
TEST_F(RepairVerbTest, PutsMotionJpegAndTextLast) {
  LoadAviPlugin(TEST_PLUGIN);
  test::MemoryIO io;
  test::Recording r(&io);
  r.Track(test::VideoMedia("txt")).Track(test::VideoMedia("jpeg")).Track(test::AudioMedia());
  r.Track(test::VideoMedia());
  ASSERT_TRUE(r.Open());
  std::string const picture = "\xFF\xD8jpg", audio(7680, 's');
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(r.Push(0, "text"));
    EXPECT_TRUE(r.Push(1, "01dc" + std::string("\5\0\0\0", 4) + picture, true));
    EXPECT_TRUE(r.Push(2, audio));
    EXPECT_TRUE(r.Push(3, i == 0 ? test::KeyFrame("x") : test::Frame("x"), i == 0));
  }
  ASSERT_TRUE(r.Close());
  Write("in.avi", {io.bytes.begin(), io.bytes.end()});
  Expect("verify in.avi",
         {{"", 0, "found text before audio pcm"}, {"", 0, "found video mjpeg before audio pcm"}});
  Expect("repair",
         {{"in.avi -o out.avi", 0, "track 1: video mjpeg: kept 3 packets, 15 bytes (track 3"}});
  EXPECT_EQ(Payload("out.avi", 0), audio + audio + audio);
  EXPECT_EQ(Payload("out.avi", 1),
            test::StoredKeyFrame("x") + test::StoredFrame("x") + test::StoredFrame("x"));
  EXPECT_EQ(Payload("out.avi", 2), "texttexttext");
  Expect("verify out.avi", {{"", 0, "clean"}});
  Expect("play out.avi", {{"", 0, "out.avi: 6 packets"}});
  Expect("extract --track 3:p.mjpeg out.avi", {{"", 0, ""}});
  EXPECT_EQ(FileText(At("p.mjpeg")), picture + picture + picture);
}

// As record does.
TEST_F(RepairVerbTest, NotesAChangedFrameRate) {
  Make("all.avi");
  std::string const all = FileText(At("all.avi"));
  struct {
    unsigned rate, scale, time_us;  // in the headers of H.264 and HEVC, and in the main one
    std::string options;
    int code;
    char const* said;
    unsigned whole;  // the rate of the output
  } const cases[] = {
      {250000, 10000, 40000, "", 0, "out.avi: 54 packets", 25},
      {290000, 10000, 33366, "", 0, "out.avi: 54 packets", 29},
      {30000, 1001, 33366, "", 0, "note: in.avi, track 0: 30000/1001 fps is stored as 30 fps", 30},
      {25, 1, 40000, "--fps 12.5", 1, "warning: in.avi, track 0: 125/10 fps is stored as 13 fps",
       13},
      {1000000, 16667, 16667, "", 0, "out.avi: 54 packets", 60},
      {0, 0, 40000, "", 0, "out.avi: 54 packets", 25},
      {1, 2, 2000000, "", 4,
       "track 0: a frame rate of 1/2 cannot be recorded (1 to 1000; --fps overrides it)", 0},
      {1, 2, 2000000, "--fps 1", 0, "out.avi: 54 packets", 1},
      {0, 0, 0, "", 2, "the frame rate of the input is unknown; set it with --fps", 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.said);
    std::string in = all;
    Put(in, in.find("avih") + 8, c.time_us);
    std::size_t const h264 = in.find("vids"), hevc = in.find("vids", h264 + 1);
    for (std::size_t strh : {h264, hevc}) Put(in, strh + 20, c.scale), Put(in, strh + 24, c.rate);
    Write("in.avi", in);
    Result const result = Run("repair --force in.avi -o out.avi " + c.options);
    EXPECT_EQ(result.code, c.code) << result.err;
    EXPECT_THAT(result.err, HasSubstr(c.said));
    bool const note = std::string(c.said).find("is stored as") != std::string::npos;
    EXPECT_EQ(result.err.find("is stored as") != std::string::npos, note) << result.err;
    if (c.code > 1) continue;
    avi::AviTrack const track = avi::AviFile(At("out.avi")).Tracks()[kHevc];
    EXPECT_EQ(std::pair(track.rate, track.scale), std::pair(c.whole * 10000, 10000u));
  }
  std::string two = all;
  Put(two, two.find("vids", two.find("vids") + 1) + 24, 200000);  // of HEVC
  Write("two.avi", two);
  Expect("repair --force -o out.avi two.avi",
         {{"", 1, "track 1: 20 fps, but another track has 25 fps"},
          {"--fps 20", 0, "out.avi: 54 packets"}});
}

TEST_F(RepairVerbTest, ReportsWhatItDid) {
  Make("all.avi");
  Damage("all.avi", "in.avi", 1, kFlags, 0);  // a key frame
  Damage("in.avi", "in.avi", 6, kFlags, 0x10);
  Damage("in.avi", "in.avi", 7, kOffset, 5);
  auto const time = fs::last_write_time(At("in.avi"));
  Result const mended = Run("repair --json in.avi -o out.avi");
  EXPECT_EQ(mended.code, 0) << mended.err;
  json const document = json::parse(mended.out);
  EXPECT_EQ(document["tracks"].size(), kTracks);
  EXPECT_EQ(std::tuple(document["keys_corrected"], document["entries_astray"], document["found"]),
            std::tuple(2, 1, 1));
  EXPECT_TRUE(FileText(At("out.avi")) == FileText(At("all.avi")));
  EXPECT_TRUE(time == fs::last_write_time(At("in.avi")));

  // Key frames of video that cannot be recorded are not looked for.
  Write("foreign.avi", Replaced(FileText(At("all.avi")), "H264", "XVID"));
  Result const foreign = Run("repair --json foreign.avi -o foreign-out.avi");
  EXPECT_EQ(foreign.code, 1) << foreign.err;
  EXPECT_EQ(json::parse(foreign.out)["keys_corrected"], 0);

  Write("half.avi", FileText(At("all.avi")).substr(0, 50000));
  Write("head.avi", FileText(At("all.avi")).substr(0, 200));
  Write("x.avi.part", "precious");
  Expect("repair", {{"half.avi -o new.avi", 1, "lost 1 packet, "},
                    {"half.avi -o out.avi", 2, "exists already"},
                    {"half.avi -o out.avi --force", 1, "lost 1 packet, "},
                    {"half.avi -o half.avi --force", 2, "would be overwritten"},
                    {"x.avi.part -o x.avi", 2, "would be overwritten"},
                    {"half.avi -o a.avi --image none", 3, "none: No such file"},
                    {"half.avi -o none/a.avi", 3, "none/a.avi"},
                    {"head.avi -o a.avi", 4, "ends within its head"}});
  EXPECT_FALSE(fs::exists(At("a.avi")));
  EXPECT_FALSE(fs::exists(At("a.avi.part")));
  EXPECT_EQ(FileText(At("x.avi.part")), "precious");
}

}  // namespace
}  // namespace kestro::tool
