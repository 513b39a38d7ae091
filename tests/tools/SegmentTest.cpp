// Recordings of several files.
#include <cmath>
#include <iterator>
#include <sstream>

#include "Command.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

class SegmentTest : public Command {
 protected:
  // All blocks of an audio track but the last are as long as the first.
  void ExpectBlocks(std::string const& file, int track) {
    auto const blocks = Entries(file, track);
    for (avi::IndexEntry const& block : blocks)
      EXPECT_TRUE(block.size == blocks[0].size ||
                  (&block == &blocks.back() && block.size < blocks[0].size))
          << file;
  }
};

// Frames and audio blocks differ in length, so that all cuts go through blocks.
TEST_F(SegmentTest, HoldEverythingOnceAndInStep) {
  Write(
      "t.srt",
      "1\n00:00:00,500 --> 00:00:01,000\nfirst\n\n2\n00:00:01,001 --> 00:00:02,000\nat the cut\n");
  ASSERT_EQ(Run("record --fps 11 -o motion.avi media/clip15.mjpeg").code, 0);
  std::string const all =
      " media/mono8k.wav media/clip2997.h264 media/stereo48k.wav motion.avi t.srt";
  std::string const sync = "--sync callback --sync-interval 0.1 --segment-time 1.5 --isft me";
  std::string const sounds = " media/stereo48k.wav media/mono8k.wav";
  struct {
    std::string options, inputs, files;
    std::vector<int> audios;  // tracks
  } const cases[] = {
      {"--segment-time 1 -o a%02d.avi", all, "a01.avi a02.avi a03.avi", {0, 2}},
      {"--segment-size 300K -o b.avi", all, "b.avi b-00002.avi b-00003.avi", {0, 2}},
      {"--realtime --segment-time 1 -o c%%%d%%d.avi", all, "c%1%d.avi c%2%d.avi c%3%d.avi", {0, 2}},
      {sync + " -o d%d.avi", all, "d1.avi d2.avi", {0, 2}},
      {"--segment-time 0.3 -o e%d.avi", " --fps 15 media/clip15.mjpeg", "e1.avi e2.avi e3.avi", {}},
      {"--segment-time 1.01 -o f%d.avi", sounds, "f1.avi f2.avi f3.avi", {0, 1}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.options);
    if (&c == cases || c.inputs != (&c)[-1].inputs)
      Expect("record --force -o whole.avi", {{c.inputs, 0, ""}});
    Result const result = Run("record " + c.options + c.inputs);
    ASSERT_EQ(result.code, 0) << result.err;
    std::istringstream names(c.files);
    std::vector<std::string> const files{std::istream_iterator<std::string>(names), {}};
    Expect("join --force -o joined.avi", {{c.files, 0, "joined.avi: "}});
    int const tracks = static_cast<int>(avi::AviFile(At("whole.avi")).Tracks().size());
    for (int track = 0; track < tracks; ++track) {
      std::string parts;
      for (std::string const& file : files) parts += Payload(file, track);
      EXPECT_TRUE(parts == Payload("whole.avi", track)) << track;
      EXPECT_TRUE(Payload("joined.avi", track) == Payload("whole.avi", track)) << track;
    }
    double seconds = 0, pictures = 0;
    for (std::string const& file : files) {
      EXPECT_THAT(result.err, HasSubstr(file + ": "));
      EXPECT_FALSE(fs::exists(At(file + ".sync")));
      for (int track : c.audios) ExpectBlocks(file, track);
      if (c.inputs != all || file == files.back()) continue;
      avi::AviFile const avi(At(file));
      double const part = double(avi.Tracks()[1].chunks) / 30;
      EXPECT_NEAR(part * 8000, double(Payload(file, 0).size()) / 2, 1);
      seconds += part;
      pictures += avi.Tracks()[3].chunks;
      EXPECT_EQ(pictures, std::min(15.0, std::ceil(seconds * 11)))
          << "those that begin before the cut";
    }
    EXPECT_EQ(Run("verify " + files[1]).code, tracks == 1 ? 0 : Run("verify whole.avi").code);
  }
}

TEST_F(SegmentTest, ClipsAcrossFiles) {
  std::string const inputs = " media/clip25.h264 media/stereo48k.wav media/mono8k.wav";
  Expect("record", {{"-o whole.avi" + inputs, 0, ""},
                    {"--segment-time 1 -o s%d.avi" + inputs, 0, "s4.avi"},
                    {"-o other.avi media/clip25.h264", 0, ""}});
  EXPECT_EQ(Run("clip --list s1.avi s2.avi").out,
            "       begin          end  file\n       0.000        1.000  s1.avi\n"
            "       1.000        2.000  s2.avi\n");
  Write("marks.jsonl", "{\"pts_ms\":40,\"text\":\"a\\nb\"}\n{\"pts_ms\":1500,\"text\":\"c\"}\n");
  Expect("record --segment-time 1 --duration 2 --start-time 2026-11-22T10:00:00Z -o m%d.avi",
         {{"media/clip25.h264 marks.jsonl", 0, ""}});
  EXPECT_THAT(Run("clip --list m1.avi m2.avi").out,
              testing::EndsWith("  text\n       0.040        0.040  2026-11-22T10:00:00.040Z  a b\n"
                                "       1.520        1.520  2026-11-22T10:00:01.520Z  c\n"));
  for (std::string const part : {"--from 0.5", "--from 1.5 --to 2.96", "--from 3.2", "--to 1"}) {
    SCOPED_TRACE(part);
    Expect("clip --force " + part,
           {{"-o a.avi whole.avi", 0, ""}, {"-o b.avi s1.avi s2.avi s3.avi s4.avi", 0, ""}});
    EXPECT_TRUE(FileText(At("a.avi")) == FileText(At("b.avi")));
    EXPECT_EQ(Run("verify a.avi").code, 0);
  }
  Expect("record -o open.avi media/clip25.h265", {{"", 0, ""}});
  Expect("clip", {{"--from 1.2 -o o.avi open.avi", 1, "open group of pictures"},
                  {"--to 1 -o p.avi open.avi", 0, ""},
                  {"--from 4 -o c.avi whole.avi", 2, "after the end"},
                  {"--from 2 --to 2 -o c.avi whole.avi", 2, "after --from"},
                  {"whole.avi", 2, "--output"},
                  {"-o whole.avi --force whole.avi", 2, "whole.avi"}});
  std::string bytes = FileText(At("s2.avi"));
  std::size_t const sps = bytes.find("\x01\x67");
  ASSERT_NE(sps, bytes.npos);
  bytes[sps + 2] = 122;  // the profile
  Write("profile.avi", bytes);
  Expect("join -o c.avi", {{"s1.avi other.avi", 4, "other.avi: has other tracks"},
                           {"s1.avi profile.avi", 4, "fps, High 4:2:2, 8 bits"},
                           {"s1.avi media/mono8k.wav", 4, "mono8k.wav"}});
}

TEST_F(SegmentTest, KeepsAudioInSyncAtTheJoints) {
  struct {
    char const* inputs;
    std::size_t joint, second;  // bytes of audio up to the joint, and in a second
    char const* warning;
  } const cases[] = {
      {"media/clip25.h264 media/stereo48k.wav", 4 * 192000, 192000,
       "a.avi: track 1: 1.000 s of missing audio filled with silence"},
      {"media/clip2997.h264 media/mono8k.wav", 3 * 16000, 16000,
       "a.avi: track 1: 0.996 s of audio after the last picture left out"},
  };
  for (auto const& c : cases) {
    Expect("record --force -o a.avi", {{c.inputs, 0, ""}});
    Expect("join --force -o b.avi a.avi a.avi", {{"", 1, c.warning}});
    Expect("clip --force --from 1 --to 7 -o c.avi a.avi a.avi", {{"", 1, c.warning}});
    std::string const audio = Payload("a.avi", 1);
    std::string first = audio;
    first.resize(c.joint);
    EXPECT_TRUE(Payload("b.avi", 1) == first + audio) << c.inputs;
    EXPECT_TRUE(Payload("c.avi", 1).substr(0, c.joint - c.second) == first.substr(c.second))
        << c.inputs;
  }
}

// The second file has a track in between that cannot be recorded.
TEST_F(SegmentTest, JoinsByTheTracksOfEachFile) {
  Expect("record --duration 3",
         {{"-o a.avi media/clip25.h264 media/stereo48k.wav", 0, ""},
          {"-o b.avi media/clip25.h264 media/mono8k.wav media/stereo48k.wav", 0, ""}});
  std::string bytes = FileText(At("b.avi"));
  bytes[bytes.find("strf", bytes.find("strf") + 1) + 8] = '\xFF';  // the code of another format
  Write("b.avi", bytes);
  Expect("join -o c.avi a.avi b.avi", {{"", 1, "b.avi: track 1 is left out: audio"}});
  EXPECT_TRUE(Payload("c.avi", 1) == Payload("a.avi", 1) + Payload("a.avi", 1));
}

TEST_F(SegmentTest, JoinsDamagedFilesInLittleMemory) {
  Expect("record", {{"-o a.avi media/clip25.h264 media/stereo48k.wav", 0, ""}});
  std::string rate = FileText(At("a.avi")), size = rate, audio = Payload("a.avi", 1);
  Put(rate, rate.rfind("strf") + 12, 0x7FFFFFF0);             // samples per second
  size[size.find("01wb", size.rfind("idx1")) + 15] = '\xE0';  // gigabytes, not of silence
  Write("rate.avi", rate);
  Write("size.avi", size);
  EXPECT_LE(Shell(TEST_LIMITED_TOOL " join -o b.avi rate.avi").code, 1);
  Expect("join -o c.avi size.avi", {{"", 1, "size.avi: track 1: 0.020 s of missing audio filled"}});
  std::fill_n(audio.begin(), 3840, '\0');
  EXPECT_TRUE(Payload("c.avi", 1) == audio);
}

TEST_F(SegmentTest, NumbersFilesAndRefusesWrongOptions) {
  Write("n-00002.avi", "old");
  Write("p1.avi", "old");
  Expect("record --segment-time 1 -o n.avi media/clip25.h264", {{"", 0, "n-00005.avi"}});
  EXPECT_EQ(FileText(At("n-00002.avi")), "old");
  Expect("record --force --segment-time 1 -o n.avi media/clip25.h264", {{"", 0, "n-00002.avi"}});
  EXPECT_EQ(FileText(At("n-00004.avi")), FileText(At("n-00005.avi")));
  Expect("record media/clip25.h264",
         {{"--segment-size 1K -o g.avi", 1, "g-00004.avi: is larger"},
          {"--segment-time 2 -o p%d.avi", 0, "p3.avi: "},
          {"-o %d-%d.avi", 2, "one number"},
          {"-o 100%.avi", 2, "%% is a percent sign"},
          {"--segment-time 2 -o 100%%.avi", 0, "100%-00002.avi: "},
          {"-o x.avi --segment-size 0", 2, "more"},
          {"-o x.avi --segment-size 1M --sync in-place", 2, "reserved index"},
          {"-o x.avi --drop", 2, "--realtime"}});
}

TEST_F(SegmentTest, DeletesTheOldestFiles) {
  std::string const record = "record --json --segment-time 1 -o cam-%d.avi media/clip25.h264 ";
  struct {
    char const *limit, *said;
    int code;
    std::vector<int> files;  // after it; each run records four
  } const cases[] = {
      {"", "opened", 0, {1, 2, 3, 4}},
      {"--keep-files 3", R"({"event":"deleted","file":"cam-2.avi","bytes":)", 0, {6, 7, 8}},
      {"--keep-free 1K", "\"end\"", 0, {6, 7, 8, 9, 10, 11, 12}},
      {"--keep-bytes 90K", R"("deleted","file":"cam-8.avi")", 0, {}},
      {"--keep-age 0.001", "deleted", 0, {}},
      {"--keep-files 0", "is not in the range 1 to", 2, {}},
      {"--keep-age 0", "must be more than 0", 2, {}},
  };
  for (auto const& c : cases) {
    Result const result = Run(record + c.limit);
    EXPECT_EQ(result.code, c.code) << c.limit << result.err;
    EXPECT_THAT(result.out, HasSubstr(c.said)) << c.limit;
    if (c.files.empty()) continue;
    std::vector<int> files;
    for (int i = 1; i < 30; ++i)
      if (fs::exists(At("cam-" + std::to_string(i) + ".avi"))) files.push_back(i);
    EXPECT_EQ(files, c.files) << c.limit;
  }
  Shell("for file in cam-*.avi; do touch $file.keep; done");
  Result const full = Run(record + "--keep-bytes 90K");
  EXPECT_EQ(full.code, 3);
  EXPECT_THAT(full.out, HasSubstr("nothing may be deleted"));
}

}  // namespace
}  // namespace kestro::tool
