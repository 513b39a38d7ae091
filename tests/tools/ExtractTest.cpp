// kestro-avi extract gives back what was recorded.
#include <iterator>
#include <sstream>

#include "EveryKind.h"
#include "media/TextFile.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

class ExtractTest : public EveryKind {
 protected:
  // A hash of every decoded frame, or of every 1024 samples, in order of time.
  std::string Pictures(std::string const& name) { return Hashes(name, "-map 0:v:0"); }
  std::string Hashes(std::string const& name, std::string const& options) {
    Result const result = Shell("ffmpeg -nostdin -v error -i " + name + " " + options +
                                " -fps_mode passthrough -f framemd5 - | sed -n '/^#/!s/.*, *//p'");
    EXPECT_EQ(result.err, "") << name;
    EXPECT_NE(result.out, "") << name;
    return result.out;
  }
  std::vector<double> Times(std::string const& name) {
    std::istringstream text(Shell("ffprobe -v quiet -select_streams v -show_entries "
                                  "packet=pts_time -of csv=p=0 " +
                                  name + " | sort -n")
                                .out);
    return {std::istream_iterator<double>(text), {}};
  }
};

// As record does.
TEST_F(ExtractTest, ConvertsLengthPrefixedFrames) {
  if (!Has("ffmpeg")) GTEST_SKIP();
  // An avcC record is the only place of the parameter sets; every second chunk is empty.
  Shell("ffmpeg -v error -i media/clip25.mp4 -an -c copy -bsf:v filter_units=remove_types=9 a.mp4");
  Shell("ffmpeg -v error -i a.mp4 -c copy -tag:v avc1 a.avi");
  std::string whole = Replaced(FileText(At("a.avi")), "avc1", "H264");
  auto const movi = static_cast<unsigned>(whole.find("movi"));
  for (auto at = whole.rfind("idx1") + 16; at < whole.size(); at += 16)
    Put(whole, at, Get(whole, at) + movi);
  std::string damaged = whole, cut = whole;
  damaged[Get(whole, whole.rfind("idx1") + 8 + 2 * 16 + 8) + 8] = '\x7F';  // in the second frame
  cut[cut.find("\xFF\xE1") + 2] = '\x7F';                                  // the length of the SPS
  Write("whole.avi", whole), Write("damaged.avi", damaged), Write("cut.avi", cut);
  Expect("",
         {{"extract whole.avi --track 0:w.h264", 0, ""},
          {"extract whole.avi --track 0:w.mkv", 0, ""},
          {"repair whole.avi -o w.avi", 0, "kept 200 packets, "},
          {"info whole.avi", 0, "50 fps, length-prefixed"},
          {"info --json whole.avi", 0, "\"form\": \"length-prefixed\""},
          {"verify --deep whole.avi", 0, "1 note\n  note length-prefixed"},
          {"play whole.avi", 1, "track 0 are length-prefixed"},
          {"extract damaged.avi --track 0:d.h264", 1, "track 0: 1 damaged frame written partly"},
          {"extract damaged.avi --track 0:d.mkv", 1, "track 0: 1 damaged frame written partly"},
          {"repair damaged.avi -o d.avi", 1, "kept 199 packets, "},
          {"verify --deep damaged.avi", 1, "1 error, 1 note"},
          {"extract cut.avi --track 0:c.h264", 1, "parameter sets in its header are damaged"},
          {"verify cut.avi", 1, "error parameter-sets"},
          {"repair cut.avi -o c.avi", 1, "parameter sets in its header are damaged"}});
  Expect("verify --deep", {{"w.avi", 0, "clean"}, {"d.avi", 0, "clean"}});
  EXPECT_EQ(Payload("w.avi", 0), FileText(At("w.h264")));
  for (char const* copy : {"whole.avi", "w.h264", "w.mkv", "w.avi"})
    EXPECT_EQ(Pictures(copy), Pictures("media/clip25.h264")) << copy;
}

// With delimiters and without, three-byte start codes, several slices, reordered frames.
TEST_F(ExtractTest, GivesBackWhatWasRecorded) {
  struct {
    std::string clip, ending, audio;
    int code = 0;  // of record: the tracks drift apart
    std::string option = "";
  } const inputs[] = {{"clip25", "h264", "stereo48k"},
                      {"clip2997", "h264", "mono8k", 1, "--keep-samples"},
                      {"clip-noaud", "h264", "mono8k"},
                      {"clip25", "h265", "mono8k"}};
  for (auto const& in : inputs) {
    std::string const video = "media/" + in.clip + "." + in.ending, raw = "out/a-0." + in.ending;
    std::string const audio = "media/" + in.audio + ".wav";
    SCOPED_TRACE(video);
    Expect("", {{"record --force -o a.avi " + in.option + " " + video + " " + audio, in.code, ""},
                {"extract --force -o out a.avi", 0, ""},
                {"extract --force a.avi --track 0:b.mkv --track 1:b.mkv", 0, ""},
                {"extract --force a.avi --track 0:b.mp4", 0, ""}});
    ASSERT_EQ(Run("record --force -o v.avi " + video).code, 0);
    Damage("v.avi", "lost.avi", 2, kOffset, 1000);
    Expect("extract --force lost.avi", {{"--track 0:lost.mkv", 1, "offset 1000: no chunk 00dc"}});
    EXPECT_TRUE(FileText(At(raw)) == Payload("a.avi", 0));
    EXPECT_TRUE(FileText(At("out/a-1.wav")) == FileText(At(audio)));
    if (!Has("ffmpeg")) continue;
    for (std::string const& copy : {raw, std::string("b.mp4"), std::string("b.mkv")})
      EXPECT_EQ(Pictures(copy), Pictures(video)) << copy;
    std::string const blocks = "-map 0:a:0 -af asetnsamples=n=1024:p=0 -c:a pcm_s16le";
    EXPECT_EQ(Hashes("b.mkv", blocks), Hashes(audio, blocks));
    avi::AviTrack const track = avi::AviFile(At("a.avi")).Tracks()[0];
    for (std::string file : {"b.mp4", "b.mkv", "lost.mkv"}) {
      std::vector<double> const times = Times(file);
      std::size_t const lost = file == "lost.mkv";  // a frame that is lost leaves its time empty
      ASSERT_EQ(times.size(), track.chunks - lost) << file;
      double const frame = double(track.scale) / track.rate;
      EXPECT_NEAR(times.back() - times[0], frame * double(track.chunks - 1), 0.0015) << file;
      for (std::size_t i = 0; i < times.size() && lost == 0; ++i)
        EXPECT_NEAR(times[i] - times[0], frame * double(i), 0.0015) << file;
    }
  }
  std::string data = FileText(At("media/make-media.sh"));
  data.resize((data.size() + 3) / 4 * 4);
  Expect("", {{"record -o c.avi --strd media/make-media.sh media/clip25.h264", 0, ""},
              {"extract --strd strd.bin c.avi", 0, ""}});
  EXPECT_EQ(FileText(At("strd.bin")), data);
  EXPECT_EQ(Shell("find . -name '*.part'").out, "");
}

TEST_F(ExtractTest, GivesBackEveryKindOfTrack) {
  Make("a.avi");
  Damage("a.avi", "long.avi", 0, kSize, 8);  // the first text
  MakeUnusual("a.avi");
  Expect("extract",
         {{"a.avi -o out", 0, ""},
          {"a.avi --track 4:t.jsonl --track 4:t%d.txt --track 5:%02d.jpg --track 5:%%%%d%d.jpg", 0,
           ""},
          {"a.avi --track 5:t.mkv", 0, ""},
          {"a.avi --track 5:%02d.jpg", 2, "exists"},
          {"long.avi --track 4:l.srt", 1, "3 bytes, not 04tx of 8"},
          {"noindex.avi --track 4:n.srt", 0, ""}});
  char const* const names[] = {"a-0.h264", "a-1.h265", "a-2.wav", "a-3.wav", "", "a-5.mjpeg"};
  avi::AviFile const avi(At("a.avi"));
  for (int i = 0; i < kTracks; ++i) {
    bool const wave = i == kAudio || i == kMono;
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
    for (std::string const start : {i < 9 ? "0" : "", "%%d"})
      EXPECT_EQ(FileText(At(start + std::to_string(i + 1) + ".jpg")), _pictures[i]) << start << i;
  EXPECT_THAT(FileText(At("out/a-4.srt")), HasSubstr("\n4\n00:00:00,400 --> 00:00:02,400\nend\n"));
  // A reader of movi alone finds the texts in the same places.
  EXPECT_EQ(FileText(At("n.srt")), FileText(At("out/a-4.srt")));
}

TEST_F(ExtractTest, TimesTextByFrames) {
  avi::AviTrack clock;
  clock.scale = 1, clock.rate = 30, clock.chunks = 150;
  SrtFile srt(At("t.srt"), clock);
  JsonLinesFile json(At("t.jsonl"), clock);
  auto const write = [](Output& output, std::uint64_t frame, std::string const& text) {
    output.Write(0, {reinterpret_cast<std::uint8_t const*>(text.data()), text.size(), frame});
  };
  write(srt, 2, "a"), write(srt, 60, "b\n\nb\n"), write(srt, 60, "c"), write(srt, 140, "d");
  srt.Finish();
  EXPECT_EQ(FileText(At("t.srt")),
            "1\n00:00:00,066 --> 00:00:02,000\na\n\n"
            "2\n00:00:02,000 --> 00:00:04,000\nb\n \nb\n\n"
            "3\n00:00:02,000 --> 00:00:04,000\nc\n\n"
            "4\n00:00:04,666 --> 00:00:05,000\nd\n");
  write(json, 0, "plain"), write(json, 0, "\xFF");
  EXPECT_THAT(json.Findings(), HasSubstr("1 texts are not UTF-8"));
}

// Key frames are one second apart.
TEST_F(ExtractTest, WritesAPart) {
  Write("t.srt",
        "1\n00:00:00,500 --> 00:00:01,000\na\n\n2\n00:00:01,200 --> 00:00:01,400\nb\n\n"
        "3\n00:00:02,400 --> 00:00:03,000\nc\n");
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav t.srt").code, 0);
  std::string const audio = Payload("a.avi", 1);
  std::vector<std::string> const frames = Payloads("a.avi", 0);
  struct {
    std::string options;
    std::size_t first, last, samples, texts;
  } const cases[] = {
      {"", 0, 100, 144000, 3},
      {"--from 1.5 --to 2.52", 25, 63, 72960, 2},
      {"--from 0.99 --to 1", 0, 25, 48000, 1},
      {"--from 3.1", 75, 100, 0, 0},
      {"--to 0.51", 0, 13, 24480, 0},  // the text is nearest to frame 13
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.options);
    Expect("extract --force --track 0:p.h264 --track 1:p.wav --track 2:p.srt a.avi",
           {{c.options, 0, ""}});
    std::string video;
    for (std::size_t i = c.first; i < c.last; ++i) video += frames[i];
    EXPECT_TRUE(FileText(At("p.h264")) == video);
    EXPECT_TRUE(FileText(At("p.wav")).substr(44) ==
                audio.substr(std::min(audio.size(), c.first * 1920 * 4), c.samples * 4));
    std::string const texts = FileText(At("p.srt"));
    EXPECT_EQ(static_cast<std::size_t>(std::count(texts.begin(), texts.end(), '>')), c.texts);
    ASSERT_EQ(Run("extract --track 0:- " + c.options + " a.avi").code, 0);
    EXPECT_TRUE(FileText(At("stdout.txt")) == video);
    ASSERT_EQ(Run("extract --track 1:- " + c.options + " a.avi").code, 0);
    EXPECT_TRUE(FileText(At("stdout.txt")) == FileText(At("p.wav")));
  }
  Expect("extract a.avi --track 0:x.h264", {{"--from 4", 2, "after the end"},
                                            {"--from 2 --to 2", 2, "after --from"},
                                            {"--track 0:- --track 1:-", 2, "one track"}});
}

TEST_F(ExtractTest, KeepsTheEndTimesOfTexts) {
  std::string const cues =
      "1\n00:00:00,500 --> 00:00:01,210\nz\xC3\xA4\n\n2\n00:00:01,000 --> 00:00:03,999\nb\nc\n";
  Write("t.srt", cues);
  Write("t.jsonl",
        "{\"pts_ms\":0,\"text\":\"open\"}\n{\"pts_ms\":900,\"end_ms\":1000,\"text\":\"x\"}\n");
  std::string const clip = " media/clip25.h264 ";
  Expect("record",
         {{"-o plain.avi" + clip + "t.srt", 0, "note: t.srt: the end times of texts"},
          {"-o a.avi --text-form srt" + clip + "t.srt", 0, "101 packets"},
          // libavformat reads the packet as an SRT file.
          {"-o again.avi --text-form srt a.avi", 0, "101 packets"},
          {"-o open.avi --text-form srt" + clip + "t.jsonl", 0, ""},
          {"-o part.avi --text-form srt --start 1.1 --duration 0.5" + clip + "t.srt", 0, ""},
          {"-o ntsc.avi --text-form srt media/clip2997.h264 t.srt", 0, ""},
          {"-o x.avi --text-form srt --segment-time 1" + clip + "t.srt", 2, "--segment-"}});
  std::pair<char const*, std::string> const files[] = {
      {"a", cues},
      {"again", cues},
      {"open", "1\n00:00:00,000 --> 00:00:00,900\nopen\n\n2\n00:00:00,900 --> 00:00:01,000\nx\n"},
      {"part",
       "1\n00:00:00,000 --> 00:00:00,210\nz\xC3\xA4\n\n2\n00:00:00,000 --> 00:00:02,999\nb\nc\n"},
      {"ntsc",
       "1\n00:00:00,500 --> 00:00:01,209\nz\xC3\xA4\n\n2\n00:00:00,999 --> 00:00:03,995\nb\nc\n"},
  };
  for (auto const& [name, expected] : files) {
    std::string const file = name;
    Expect("extract", {{"--track 1:" + file + ".srt " + file + ".avi", 0, ""}});
    EXPECT_EQ(FileText(At(file + ".srt")), expected) << file;
  }
  Expect("", {{"extract --track 1:a.jsonl a.avi", 0, ""},
              {"record -o lines.avi --text-form srt" + clip + "a.jsonl", 0, ""}});
  EXPECT_EQ(FileText(At("lines.avi")), FileText(At("a.avi")));
  std::string const packet = Payload("a.avi", 1);
  for (std::size_t n = 0; n < packet.size(); ++n)
    EXPECT_TRUE(UnwrapSrt(reinterpret_cast<std::uint8_t const*>(packet.data()), n).empty()) << n;
}

TEST_F(ExtractTest, ReadsUnusualAndDamagedFiles) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/stereo48k.wav").code, 0);
  MakeUnusual("a.avi");
  Damage("a.avi", "lost.avi", 2, kOffset, 1000);  // a piece of audio
  Damage("a.avi", "long.avi", 2, kSize, 5000);
  std::string few = FileText(At("a.avi"));
  Put(few, few.rfind("idx1") + 4, 2 * 16);
  Write("few.avi", few);
  std::string const audio = Payload("a.avi", 1), rest = audio.substr(0, 3840) + audio.substr(7680);
  ASSERT_EQ(avi::AviFile(At("a.avi")).Tracks()[1].bytes, audio.size());
  struct {
    std::string file;
    int code;
    std::string audio;
    char const* said;
  } const cases[] = {
      {"relative", 0, audio, "relative to movi"},
      {"noindex", 0, audio, "every chunk in movi"},
      {"nowhere", 1, audio, "does not point to chunks"},
      {"empty", 1, audio, "index is empty"},
      {"cut", 1, audio.substr(0, 6 * 3840), "no complete chunk"},
      {"few", 1, audio, "the index has entries for 2 of 250 chunks with data"},
      {"lost", 1, rest, "offset 1000: no chunk 01wb of 3840 bytes"},
      {"long", 1, rest, "a chunk of 3840 bytes, not 01wb of 5000 bytes"},
  };
  for (auto const& c : cases) {
    Expect("extract -o out", {{c.file + ".avi", c.code, c.said}});
    EXPECT_EQ(FileText(At("out/" + c.file + "-1.wav")).substr(44), c.audio) << c.file;
  }
  EXPECT_EQ(FileText(At("out/few-0.h264")), Payload("a.avi", 0));
  Expect("info few.avi", {{"", 0, "    150 chunks (1 in the index), 576000 bytes"},
                          {"--json", 0, "\"chunks\": 100,\n          \"indexed_chunks\": 1,"}});
}

TEST_F(ExtractTest, ExitCodes) {
  ASSERT_EQ(Run("record -o a.avi media/clip25.h264 media/mono8k.wav").code, 0);
  Write("foreign.avi", Replaced(FileText(At("a.avi")), "H264", "XVID"));
  Write("old.wav", "old");
  Make("b.avi");
  std::string alone = Replaced(FileText(At("b.avi")), "vids", "none");
  Write("alone.avi", alone);  // the texts have times of their own
  Write("untimed.avi", alone.replace(alone.find("txts") + 24, 4, 4, '\0'));
  Write("text.avi", "no film");
  Expect("extract", {{"a.avi --track 0", 2, "N:OUT"},
                     {"a.avi --track 2:x.h264", 2, "tracks 0 to 1"},
                     {"a.avi --track 0:x.h264 --track 0:./x.h264", 2, "twice"},
                     {"a.avi --track 0:x.h264 -o out", 2, "excludes"},
                     {"a.avi --track 0:x.unknown", 2, "file name extension"},
                     {"a.avi --track 0:x.wav", 2, "video h264"},
                     {"b.avi --track 5:x.jpg", 2, "such as %04d.jpg"},
                     {"b.avi --track 4:x.mkv", 2, "is text"},
                     {"b.avi --track 5:x.srt", 2, "video mjpeg"},
                     {"alone.avi --track 4:alone.jsonl", 0, "alone.jsonl: "},
                     {"untimed.avi --track 4:x.srt", 4, "the track has no rate"},
                     {"a.avi --track 1:x.wav --track 0:x.wav", 2, "one track"},
                     {"a.avi --track 1:old.wav", 2, "--force"},
                     {"a.avi --strd old.wav", 2, "--force"},
                     {"a.avi --strd strd.bin", 4, "no strd chunk"},
                     {"a.avi --force --track 0:a.avi", 2, "is the input"},
                     {"a.avi --track 1:none/x.wav", 3, "none/x.wav: No such"},
                     {"a.avi --track 0:none/x.mkv", 3, "none/x.mkv: No such"},
                     {"a.avi -o old.wav", 3, "old.wav"},
                     {"text.avi", 4, "not a RIFF file"},
                     {"a.avi --track 0:x.mp4 --track 1:x.mp4", 4, "mp4 does not accept pcm_s16le"},
                     {"a.avi --track 1:x.ts", 4, "mpegts does not accept pcm_s16le"},
                     {"a.avi --track 0:y.ts", 0, "y.ts: "},
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
