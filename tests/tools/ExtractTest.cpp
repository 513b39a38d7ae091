// Tracks out again: what was recorded comes back.
#include <sstream>

#include "EveryKind.h"
#include "output/TextFile.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

class ExtractTest : public EveryKind {
 protected:
  // A hash for every decoded frame, or every 1024 samples, in order of time.
  std::string Pictures(std::string const& name) { return Hashes(name, "-map 0:v:0"); }
  std::string Sound(std::string const& name) {
    return Hashes(name, "-map 0:a:0 -af asetnsamples=n=1024:p=0 -c:a pcm_s16le");
  }
  std::vector<double> Times(std::string const& name, std::string const& entry) {
    std::istringstream text(
        Shell("ffprobe -v quiet -select_streams v -show_entries " + entry + " -of csv=p=0 " + name)
            .out);
    std::vector<double> times;
    for (std::string line; std::getline(text, line);)
      if (!line.empty()) times.push_back(std::stod(line));
    return times;
  }

 private:
  std::string Hashes(std::string const& name, std::string const& options) {
    Result const result = Shell("ffmpeg -nostdin -v error -i " + name + " " + options +
                                " -fps_mode passthrough -f framemd5 - | sed -n '/^#/!s/.*, *//p'");
    EXPECT_EQ(result.err, "") << name;
    EXPECT_NE(result.out, "") << name;
    return result.out;
  }
};

// Delimiters and none, three-byte start codes, several slices, frames out of order.
TEST_F(ExtractTest, GivesBackWhatWasRecorded) {
  std::pair<std::string, std::string> const inputs[] = {
      {"clip25", "stereo48k"}, {"clip2997", "mono8k"}, {"clip-noaud", "mono8k"}};
  for (auto const& [clip, sound] : inputs) {
    SCOPED_TRACE(clip + " " + sound);
    std::string data = FileText(At("media/make-media.sh"));
    ASSERT_EQ(Run("record --force --strd media/make-media.sh -o a.avi media/" + clip +
                  ".h264 media/" + sound + ".wav")
                  .code,
              0);
    ASSERT_EQ(Run("extract --force -o out --strd strd.bin a.avi").code, 0);
    data.resize((data.size() + 3) / 4 * 4);
    EXPECT_EQ(FileText(At("strd.bin")), data);
    EXPECT_EQ(FileText(At("out/a-0.h264")), Payload("a.avi", 0));
    EXPECT_EQ(FileText(At("out/a-1.wav")), FileText(At("media/" + sound + ".wav")));
    Expect("extract --force a.avi",
           {{"--track 0:b.mkv --track 1:b.mkv", 0, ""}, {"--track 0:b.mp4", 0, ""}});
    if (!Has("ffmpeg")) continue;
    std::string const pictures = Pictures("media/" + clip + ".h264");
    for (char const* copy : {"a.avi", "out/a-0.h264", "b.mp4", "b.mkv"})
      EXPECT_EQ(Pictures(copy), pictures) << copy;
    EXPECT_EQ(Sound("b.mkv"), Sound("media/" + sound + ".wav"));
  }
  for (auto const& entry : fs::recursive_directory_iterator(_folder))
    EXPECT_NE(entry.path().extension(), ".part");
}

TEST_F(ExtractTest, GivesBackEveryKindOfTrack) {
  Make("a.avi");
  Expect("extract a.avi", {{"-o out", 0, ""},
                           {"--track 4:t.jsonl --track 4:t%d.txt --track 5:%02d.jpg "
                            "--track 5:t.mkv",
                            0, ""},
                           {"--track 5:%02d.jpg", 2, ""}});  // they exist
  char const* const names[] = {"a-0.h264", "a-1.h265", "a-2.wav",
                               "a-3.wav",  "a-4.srt",  "a-5.mjpeg"};
  AviFile const avi(At("a.avi"));
  for (int i = 0; i < kTracks; ++i) {
    bool const wave = i == kSound || i == kMono;
    EXPECT_EQ(avi.Tracks()[static_cast<std::size_t>(i)].bytes, _payload[i].size()) << i;
    if (i != kText) {
      EXPECT_EQ(FileText(At("out") / names[i]).substr(wave ? 44 : 0), _payload[i]) << i;
    }
  }
  EXPECT_EQ(
      FileText(At("t.jsonl")),
      "{\"pts_ms\":0,\"text\":\"odd\"}\n{\"pts_ms\":160,\"text\":\"zwei\"}\n"
      "{\"pts_ms\":160,\"text\":\"\xC3\xA4\\n\\nblank\"}\n{\"pts_ms\":400,\"text\":\"end\"}\n");
  for (std::size_t i = 0; i < _texts.size(); ++i)
    EXPECT_EQ(FileText(At("t" + std::to_string(i + 1) + ".txt")), _texts[i].text);
  for (std::size_t i = 0; i < _pictures.size(); ++i)
    EXPECT_EQ(FileText(At((i < 9 ? "0" : "") + std::to_string(i + 1) + ".jpg")), _pictures[i]);
  EXPECT_THAT(FileText(At("out/a-4.srt")), HasSubstr("\n4\n00:00:00,400 --> 00:00:02,400\nend\n"));
  Damage("a.avi", "long.avi", 0, kSize, 8);  // the first text
  EXPECT_THAT(Run("extract --track 4:l.srt long.avi").err, HasSubstr("3 bytes, not 04tx of 8"));
  // A reader of movi alone meets the texts in the same places.
  MakeUnusual("a.avi");
  ASSERT_EQ(Run("extract --track 4:n.srt noindex.avi").code, 0);
  EXPECT_EQ(FileText(At("n.srt")), FileText(At("out/a-4.srt")));
}

TEST_F(ExtractTest, TimesTextByFrames) {
  AviTrack clock;
  clock.scale = 1;
  clock.rate = 30;
  clock.chunks = 150;
  SrtFile srt(At("t.srt"), clock);
  JsonLinesFile json(At("t.jsonl"), clock);
  auto const write = [](Output& output, std::uint64_t frame, std::string const& text) {
    output.Write(0, {reinterpret_cast<std::uint8_t const*>(text.data()), text.size(), frame});
  };
  for (auto const& [frame, text] :
       {std::pair(2, "a"), std::pair(60, "b\n\nb\n"), std::pair(60, "c"), std::pair(140, "d")})
    write(srt, static_cast<std::uint64_t>(frame), text);
  srt.Finish();
  EXPECT_EQ(FileText(At("t.srt")),
            "1\n00:00:00,066 --> 00:00:02,000\na\n\n"
            "2\n00:00:02,000 --> 00:00:04,000\nb\n \nb\n\n"
            "3\n00:00:02,000 --> 00:00:04,000\nc\n\n"
            "4\n00:00:04,666 --> 00:00:05,000\nd\n");
  write(json, 0, "plain");
  EXPECT_EQ(json.Findings(), "");
  write(json, 0, "\xFF");
  EXPECT_THAT(json.Findings(), HasSubstr("1 texts are not UTF-8"));
}

// Frames out of order, open groups of pictures, parameter sets that change, every picture alone.
TEST_F(ExtractTest, ReadsFootageOfOtherWriters) {
  struct {
    char const *ending, *tag, *encoders[2];  // one behind the other
    std::vector<char const*> containers;
  } const clips[] = {
      {".h265",
       "hev1",
       {"libx265 -x265-params log-level=error:keyint=10:bframes=3:open-gop=1",
        "libx265 -x265-params log-level=error:keyint=10:bframes=0:aud=1:ref=1"},
       {"mp4", "mkv"}},
      {".h264",
       "H264",
       {"libx264 -x264-params keyint=10:aud=1:ref=4:bframes=2",
        "libx264 -x264-params keyint=10:aud=1:ref=1:bframes=0 -profile:v baseline"},
       {"mp4", "mkv"}},
      {".mjpeg", "MJPG", {"mjpeg -q:v 5", "mjpeg -q:v 9"}, {"mp4", "mkv", "avi"}},
  };
  for (auto const& clip : clips) {
    std::string const ending = clip.ending, raw = "raw" + ending, copy = "copy" + ending;
    std::string line;
    for (char const* encoder : clip.encoders)
      line +=
          "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=96x96:rate=25 -frames:v 15 "
          "-pix_fmt yuvj420p -c:v " +
          std::string(encoder) + " one" + ending + " && cat one" + ending + " >>" + raw + " && ";
    if (Shell(line + "ffmpeg -nostdin -v error -y -r 25 -i " + raw + " -c copy -tag:v " + clip.tag +
              " clip.avi")
            .code != 0)
      GTEST_SKIP() << "no ffmpeg with " << clip.encoders[0];
    ASSERT_EQ(Run("extract --track 0:" + copy + " clip.avi").code, 0);
    EXPECT_EQ(FileText(At(copy)), FileText(At(raw)));
    for (char const* container : clip.containers) {
      std::string const file = ending.substr(1) + "." + container;
      ASSERT_EQ(Run("extract --track 0:" + file + " clip.avi").code, 0) << file;
      EXPECT_EQ(Pictures(file), Pictures(raw)) << file;
      std::vector<double> const times = Times(file, "frame=best_effort_timestamp_time");
      EXPECT_EQ(times.size(), 30u) << file;
      for (std::size_t i = 0; i < times.size(); ++i)
        EXPECT_NEAR(times[i], static_cast<double>(i) / 25 + times[0], 0.0015) << file;
    }
    // A frame that is lost leaves its time empty.
    Damage("clip.avi", "lost.avi", 2, kOffset, 1000);
    ASSERT_EQ(Run("extract --force --track 0:lost.mkv lost.avi").code, 1);
    std::vector<double> times = Times("lost.mkv", "packet=pts_time");
    std::sort(times.begin(), times.end());
    ASSERT_EQ(times.size(), 29u);
    EXPECT_NEAR(times.back() - times.front(), 29.0 / 25, 0.0015);
  }
}

TEST_F(ExtractTest, ReadsUnusualAndDamagedFiles) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  MakeUnusual("a.avi");
  Damage("a.avi", "lost.avi", 2, kOffset, 1000);  // a piece of sound
  Damage("a.avi", "long.avi", 2, kSize, 5000);
  std::string const sound = Payload("a.avi", 1), rest = sound.substr(0, 3840) + sound.substr(7680);
  ASSERT_EQ(AviFile(At("a.avi")).Tracks()[1].bytes, sound.size());
  struct {
    std::string file;
    int code;
    std::string sound;
    char const* said;
  } const cases[] = {
      {"relative", 0, sound, "count from movi"},
      {"noindex", 0, sound, "chunks in movi"},
      {"nowhere", 1, sound, "does not lead to chunks"},
      {"empty", 1, sound, "index is empty"},
      {"cut", 1, sound.substr(0, 6 * 3840), "no whole chunk"},
      {"lost", 1, rest, "offset 1000: no chunk 01wb of 3840 bytes"},
      {"long", 1, rest, "a chunk of 3840 bytes, not 01wb of 5000 bytes"},
  };
  for (auto const& c : cases) {
    Expect("extract -o out", {{(c.file + ".avi").c_str(), c.code, c.said}});
    EXPECT_EQ(FileText(At("out/" + c.file + "-1.wav")).substr(44), c.sound) << c.file;
  }
}

TEST_F(ExtractTest, ExitCodes) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/mono8k.wav").code, 0);
  Write("foreign.avi", Replaced(FileText(At("a.avi")), "H264", "XVID"));
  Write("old.wav", "old");
  Make("b.avi");
  std::string alone = Replaced(FileText(At("b.avi")), "vids", "none");
  Write("alone.avi", alone);  // texts that time themselves
  Write("untimed.avi", alone.replace(alone.find("txts") + 24, 4, 4, '\0'));
  Write("text.avi", "no film");
  Expect("extract", {{"a.avi --track 0", 2, "N:OUT"},
                     {"a.avi --track 0:", 2, "N:OUT"},
                     {"a.avi --track x:x.h264", 2, "N:OUT"},
                     {"a.avi --track 2:x.h264", 2, "tracks 0 to 1"},
                     {"a.avi --track 0:x.h264 --track 0:./x.h264", 2, "twice"},
                     {"a.avi --track 0:x.h264 -o out", 2, "excludes"},
                     {"a.avi --track 0:x.unknown", 2, "file format"},
                     {"a.avi --track 0:x.wav", 2, "video h264"},
                     {"b.avi --track 5:x.jpg", 2, "such as %04d.jpg"},
                     {"b.avi --track 4:x.mkv", 2, "is text"},
                     {"b.avi --track 5:x.srt", 2, "video mjpeg"},
                     {"alone.avi --track 4:alone.jsonl", 0, "alone.jsonl: "},
                     {"untimed.avi --track 4:x.srt", 4, "the track tells no rate"},
                     {"a.avi --track 1:x.264", 2, "audio pcm"},
                     {"a.avi --track 1:x.wav --track 0:x.wav", 2, "one track"},
                     {"a.avi --track 1:old.wav", 2, "--force"},
                     {"a.avi --strd old.wav", 2, "--force"},
                     {"a.avi --strd strd.bin", 4, "no strd chunk"},
                     {"a.avi --force --track 0:a.avi", 2, "is the input"},
                     {"a.avi --force --track 1:media", 2, "file format"},
                     {"a.avi --track 1:none/x.wav", 3, "none/x.wav: No such"},
                     {"a.avi --track 0:none/x.mkv", 3, "none/x.mkv: No such"},
                     {"a.avi -o old.wav", 3, "old.wav"},
                     {"missing.avi", 3, "missing.avi"},
                     {"text.avi", 4, "not a RIFF file"},
                     {"a.avi --track 0:x.mp4 --track 1:x.mp4", 4, "mp4 does not take pcm_s16le"},
                     {"foreign.avi --track 0:x.mkv", 4, "cannot be extracted"},
                     {"foreign.avi -o others", 1, "video mpeg4 cannot be extracted"},
                     {"a.avi --force --track 1:old.wav", 0, "64.0 kB"}});
  EXPECT_THAT(FileText(At("alone.jsonl")), HasSubstr("{\"pts_ms\":40,\"text\":\"zwei\"}"));
  EXPECT_EQ(FileText(At("old.wav")), FileText(At("media/mono8k.wav")));
  for (auto const& entry : fs::directory_iterator(_folder))
    EXPECT_NE(entry.path().stem().stem(), "x") << entry.path();
  Expect("extract a.avi", {{"", 0, "--track 0:a-0.h264\n"}, {"", 0, "a-1.wav\n"}});
}

}  // namespace
}  // namespace kestro::tool
