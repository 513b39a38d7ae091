// From the packets of a container to those of a recording: start codes, frame rates, texts.
#include "Command.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/AnnexB.h"
#include "media/FrameRate.h"
#include "media/Jpeg.h"
#include "media/Scaled.h"
#include "media/SeriesName.h"
#include "media/TextEncoding.h"
#include "media/TrackChoice.h"

namespace kestro::tool {
namespace {

using base::Fraction;
using stream::NalCodec;

// Hexadecimal digits; '|' is a start code of four bytes, ':' one of three.
Bytes Hex(std::string const& text) {
  std::string digits;
  for (char c : text) {
    if (c == '|') digits += "00";
    digits += c == '|' || c == ':' ? "000001" : c == ' ' ? "" : std::string(1, c);
  }
  std::string const bytes = FromHex(digits);
  return {bytes.begin(), bytes.end()};
}

// Units: 09 delimiter, 06 SEI, 67 SPS, 68 PPS, 65 IDR slice, 41 slice.
constexpr char kRecord[] = "01 42 00 0A FF E1 0002 67AA 01 0002 68BB";       // length prefixes of 4
constexpr char kShortRecord[] = "01 42 00 0A FD E1 0002 67AA 01 0002 68BB";  // of 2
// 40 VPS, 42 SPS, 44 PPS, 46 delimiter, 4E SEI, 26 IDR slice, 02 slice. The SEI is left out; the
// lists come in any order.
constexpr char kHevcRecord[] =
    "01 01 60000000 900000000000 5A F000 FC FD F8 F8 0000 0F 04"
    "A7 0001 0002 4E11 A2 0001 0003 440133 A0 0001 0002 4001 A1 0002 0002 4201 0002 4202";
constexpr char kStreamSets[] = ":67AA :68BB";

struct UnitCase {
  std::string name;  // begins with "HEVC" for that codec
  char const *extra, *in;
  bool key;
  char const* out;
  bool whole = true;
} const kUnits[] = {
    {"only three bytes are", "", "|09F0 :65AA |65BB", false, "|09F0 |65AA |65BB"},
    {"more zeros stay", "", "|41AA 00|41BB", false, "|41AA 00|41BB"},
    {"no start code", "", "41AA", false, "41AA"},
    {"start code at the end", "", "41AA :", false, "41AA |"},
    {"four-byte lengths", kRecord, "00000002 41AA 00000001 06", false, "|41AA |06"},
    {"two-byte lengths", kShortRecord, "0002 41AA 0001 06", false, "|41AA |06"},
    {"length beyond the packet", kRecord, "00000002 41AA 000000FF 41", false, "|41AA", false},
    {"length cut off", kRecord, "00000002 41AA 0000", false, "|41AA", false},
    {"start codes despite a record", kRecord, "|41AA :06", false, "|41AA |06"},
    {"key frame gets its sets", kRecord, "00000002 65AA", true, "|67AA |68BB |65AA"},
    {"sets follow the delimiter and precede SEI", kRecord,
     "00000002 09F0 00000002 0601 00000002 65AA", true, "|09F0 |67AA |68BB |0601 |65AA"},
    {"own sets suffice", kRecord, "00000002 67CC 00000002 68DD 00000002 65AA", true,
     "|67CC |68DD |65AA"},
    {"missing PPS", kRecord, "00000002 67CC 00000002 65AA", true, "|67CC |68BB |65AA"},
    {"missing SPS comes first", kRecord, "00000002 68DD 00000002 65AA", true, "|67AA |68DD |65AA"},
    {"byte stream without sets", kStreamSets, "|65AA", true, "|67AA |68BB |65AA"},
    {"byte stream with sets", kStreamSets, ":67CC |65AA", true, "|67CC |65AA"},
    {"HEVC sets", kHevcRecord, "00000002 4601 00000002 4E01 00000003 260188", true,
     "|4601 |4001 |4201 |4202 |440133 |4E01 |260188"},
    {"HEVC PPS", kHevcRecord, "00000002 4007 00000002 4207 00000003 260188", true,
     "|4007 |4207 |440133 |260188"},
    {"HEVC VPS", kHevcRecord, "00000002 4207 00000002 4407 00000003 260188", true,
     "|4001 |4207 |4407 |260188"},
    {"HEVC byte stream", ":4001 :4201", ":260188", true, "|4001 |4201 |260188"},
};

TEST(AnnexB, ConvertsUnits) {
  for (UnitCase const& c : kUnits) {
    SCOPED_TRACE(c.name);
    AnnexB converter(c.name.rfind("HEVC", 0) == 0 ? NalCodec::kHevc : NalCodec::kH264);
    Bytes const extra = Hex(c.extra), in = Hex(c.in), later = Hex("|65AA");
    Bytes out;
    ASSERT_TRUE(converter.Configure(extra.data(), extra.size()));
    EXPECT_EQ(converter.Convert(in.data(), in.size(), c.key, out), c.whole);
    EXPECT_EQ(out, Hex(c.out));
    Bytes inPlace = in;
    bool const possible = !c.key && c.whole && out.size() == in.size();
    EXPECT_EQ(converter.ConvertInPlace(inPlace.data(), in.size(), c.key), possible);
    EXPECT_EQ(inPlace, possible ? out : in);
    if (c.name != "byte stream with sets") continue;
    converter.Convert(later.data(), later.size(), true, out);
    EXPECT_EQ(out, later) << "a stream with sets is left alone from then on";
  }
}

TEST(AnnexB, RefusesEveryCutRecord) {
  Bytes const record = Hex(kRecord), hevc = Hex(kHevcRecord);
  for (std::size_t n = 7; n < record.size(); ++n)  // 10 is the end of the SPS: PPS may be left out
    EXPECT_EQ(AnnexB(NalCodec::kH264).Configure(record.data(), n), n == 10) << n;
  for (std::size_t n = 3; n < hevc.size(); ++n)
    EXPECT_FALSE(AnnexB(NalCodec::kHevc).Configure(hevc.data(), n)) << n;
}

TEST(FrameRate, IsChosen) {
  struct {
    Fraction option, container, stream, rate;
    int refusal;
  } const cases[] = {
      {{}, {25, 1}, {}, {25, 1}, 0},           {{}, {}, {30000, 1001}, {30000, 1001}, 0},
      {{50, 1}, {25, 1}, {24, 1}, {50, 1}, 0}, {{}, {}, {}, {}, kUsage},
      {{1, 2}, {25, 1}, {}, {}, kUsage},       {{}, {999, 1000}, {}, {}, kUnusable},
      {{}, {90000, 1}, {}, {}, kUnusable},     {{1, 1}, {}, {}, {1, 1}, 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.option.Text() + " " + c.container.Text() + " " + c.stream.Text());
    try {
      EXPECT_EQ(ChooseRate({c.option, c.container, c.stream}, "clip"), c.rate);
      EXPECT_EQ(0, c.refusal);
    } catch (Error const& error) {
      EXPECT_EQ(error.Code(), c.refusal);
      EXPECT_THAT(error.what(), testing::HasSubstr("--fps"));
    }
  }
  for (char const* text : {"", "0", "-25", "25/0", "abc", "9999999999"})
    EXPECT_THROW(ParseRate(text), Error) << text;
  EXPECT_EQ(ParseRate("29.97"), Fraction(30000, 1001));
  EXPECT_EQ(ParseRate("29.99"), Fraction(2999, 100));
  EXPECT_EQ(UsualRate({19001, 317}), Fraction(60000, 1001)) << "from times in ms";
  EXPECT_EQ(UsualRate({2999, 100}), Fraction(30, 1));
}

TEST(FrameRate, IsStoredAsTheNearestWholeOne) {
  struct {
    Fraction rate, stored, speed;
    bool stretchable;
    char const* drift;
  } const cases[] = {
      {{25, 1}, {25, 1}, {1, 1}, true, "0 s per hour"},
      {{30000, 1001}, {30, 1}, {1000, 1001}, true, "0.1 % faster than audio, which is 3.6 s"},
      {{60000, 1001}, {60, 1}, {1000, 1001}, true, ""},
      {{2997, 100}, {30, 1}, {999, 1000}, true, ""},
      {{25, 2}, {13, 1}, {25, 26}, false, "4 % faster than audio, which is 138 s"},
      {{15, 2}, {8, 1}, {15, 16}, false, "225 s per hour"},
      {{121, 8}, {15, 1}, {121, 120}, false, "slower"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.rate.Text());
    EXPECT_EQ(StoredRate(c.rate), c.stored);
    EXPECT_EQ(PlayedSpeed(c.rate), c.speed);
    EXPECT_EQ(Stretchable(c.speed), c.stretchable);
    EXPECT_THAT(DriftText(c.speed), testing::HasSubstr(c.drift));
  }
}

// Of an input with five tracks.
TEST(TrackChoice, MatchesNumberKindAndLanguage) {
  std::vector<InputTrack> const tracks = {{InputTrack::kVideo, 0, 0, ""},
                                          {InputTrack::kAudio, 1, 0, "eng"},
                                          {InputTrack::kAudio, 2, 1, "ger"},
                                          {InputTrack::kText, 4, 0, "eng"},
                                          {InputTrack::kText, 5, 1, ""}};
  std::pair<char const*, char const*> const cases[] = {
      {"0:1", ".a..."},   {"0:v", "v...."},   {"0:audio", ".aa.."},
      {"0:a:1", "..a.."}, {"0:eng", ".a.t."}, {"0:t:eng", "...t."},
      {"0:5", "....t"},   {"0:3", ""},        {"0:a:2", ""},
      {"0:fra", ""},      {"0", ""},          {"0:", ""},
      {"a:0", ""},        {"0:a:1:2", ""},    {"0:a:", ".aa.."},
      {"0:-1", ""},       {"0:audioo", ""},   {":1", ""},
      {"99999:1", ""},
  };
  for (auto const& [text, expected] : cases) {
    std::string matched;
    try {
      auto const chosen = Chosen({TrackChoice::Parse(text)}, tracks, "in");
      for (std::size_t i = 0; i < chosen.size(); ++i) matched += chosen[i] ? "vaatt"[i] : '.';
    } catch (Error const& error) {
      EXPECT_EQ(error.Code(), kUsage) << text;
      EXPECT_THAT(error.what(), testing::HasSubstr(text));
    }
    EXPECT_EQ(matched, expected) << text;
  }
}

TEST(Times, AreScaledWhole) {
  constexpr std::int64_t kMax = INT64_MAX, kNone = INT64_MIN;
  struct {
    std::int64_t value, num, den, nearest, lower;
  } const cases[] = {
      {1, 1001000000000, 30000, 33366667, 33366666},
      {3, 1, 2, 2, 1},
      {-3, 1, 2, -2, -1},
      {kMax, kMax, kMax, kMax, kMax},
      {kMax, 1000000000, 1000000001, 9223372027631403779, 9223372027631403779},
      {-kMax, 3, 5, -5534023222112865484, -5534023222112865484},
      {INT64_MIN, kMax - 1, kMax, -kMax, -(kMax - 1)},
      {kMax, 3, 2, kNone, kNone},
      {-kMax, 3, 2, kNone, kNone},
      {1, 1, 0, kNone, kNone},
      {1, -1, 1, kNone, kNone},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(Scaled(c.value, c.num, c.den), c.nearest) << c.value << " * " << c.num;
    EXPECT_EQ(Scaled(c.value, c.num, c.den, Rounding::kTowardsZero), c.lower) << c.value;
  }
}

TEST(Jpeg, IsWalkedToItsEnd) {
  std::string const frame = "FFC0 0008 08 0012 0034 00",
                    scan = "FFDA 0003 00 12 FF00 FFD7 FFFF00 34";
  std::pair<std::string, std::string> const cases[] = {
      {"FFD8" + frame + scan + "FFD9", "52x18"},
      {"FFD8 FFE1 0006 FFD9FFD9" + frame + scan + "FF C4 0003 00" + scan + "FFFFD9 0000", "52x18"},
      {"FFD8 FFFF C2 0008 08 0012 0034 00" + scan + "FFD9", "52x18"},
      {"", "empty"},
      {"FFD9" + frame, "not a JPEG picture"},
      {"FFD8" + frame + scan, "cut off"},
      {"FFD8" + frame + scan + "FF", "cut off"},
      {"FFD8" + frame + "FFC4 0009 00 FFD9", "cut off"},
      {"FFD8" + frame + "00" + scan + "FFD9", "damaged"},
      {"FFD8 FFC4 0008 08 0012 0034 00 FFD9", "damaged"},
      {"FFD8 FFC0 0003 08 FFD9", "damaged"},
  };
  for (auto const& [hex, expected] : cases) {
    Bytes const bytes = Hex(hex);
    JpegCheck const check = CheckJpeg(bytes.data(), bytes.size());
    EXPECT_EQ(check.fault != nullptr
                  ? check.fault
                  : std::to_string(check.width) + "x" + std::to_string(check.height),
              expected)
        << hex;
  }
}

TEST(Series, NamesFollowThePattern) {
  struct {
    char const *pattern, *path;
    std::optional<std::uint32_t> number;
  } const names[] = {
      {"a/s%%2%03d.jpg", "s%2007.jpg", 7}, {"s%d.JPEG", "s12.JPEG", 12},
      {"s%03d.jpg", "s1000.jpg", 1000},    {"s%03d.jpg", "s07.jpg", {}},
      {"s%03d.jpg", "s0007.jpg", {}},      {"s%d.jpg", "s-1.jpg", {}},
      {"s%d.jpg", "s1.jpg.jpg", {}},       {"s%d.jpg", "s.jpg", {}},
  };
  for (auto const& c : names)
    EXPECT_EQ(SeriesName::Parse(c.pattern).value().NumberOf(c.path), c.number) << c.path;
  for (char const* other :
       {"s.jpg", "s%%d.jpg", "s%d%d.jpg", "s%x.jpg", "s%d/a.jpg", "s%d.png", "http://s/%d.jpg"})
    EXPECT_FALSE(SeriesName::Parse(other)) << other;
  std::pair<std::vector<std::string>, char const*> const lists[] = {
      {{"a/shot-0010.jpg", "x.wav", "a/shot-0011.jpg"}, "a/shot-%04d.jpg"},
      {{"9%.jpg", "10%.jpg"}, "%d%%.jpg"},
      {{"1-7.jpg", "2-7.jpg"}, "%d-7.jpg"},
      {{"1-7.jpg", "2-8.jpg"}, ""},
      {{"a.jpg", "b.jpg"}, ""},
      {{"1.jpg"}, ""},
  };
  for (auto const& [paths, pattern] : lists) EXPECT_EQ(SeriesPattern(paths), pattern) << paths[0];
}

TEST(Text, IsConvertedToUtf8) {
  if (!IsEncoding("latin1")) GTEST_SKIP() << "the C library's encodings are not installed";
  struct {
    std::string text, encoding, result;  // or the error
  } const cases[] = {
      {"z\xC3\xA4", "", "z\xC3\xA4"},
      {"z\n\xE4", "", "f, line 2: not UTF-8 (--text-encoding sets the encoding)"},
      {"z\n\xE4", "latin1", "z\n\xC3\xA4"},
      {"\xEF\xBB\xBFz", "latin1", "z"},
      {{"\xFF\xFEz\0\xE4\0", 6}, "", "z\xC3\xA4"},
      {{"\xFE\xFF\0z\0\xE4", 6}, "", "z\xC3\xA4"},
      {{"\xFF\xFEz\0\xE4", 5}, "", "f, line 1: not UTF-16LE"},
      {{"z\0\xE4\0", 4}, "UTF-16LE", "z\xC3\xA4"},
      {{"z\0z\0", 4}, "", "f, line 1: not UTF-8"},
      {"\xC3", "", "f, line 1: not UTF-8"},
      {std::string(5000, '\n') + "\xFF", "EUC-JP", "f, line 5001: not EUC-JP"},
  };
  for (auto const& c : cases) {
    std::string result;
    try {
      result = ToUtf8(c.text, c.encoding, "f");
    } catch (Error const& error) {
      result = error.what();
    }
    EXPECT_EQ(result.substr(0, c.result.size()), c.result) << c.text;
  }
}

TEST(Times, AreRead) {
  std::pair<char const*, double> const good[] = {
      {"90", 90}, {"1.5", 1.5}, {".5", 0.5}, {"1:30", 90}, {"1:02:03.25", 3723.25}};
  for (auto const& [text, seconds] : good)
    EXPECT_EQ(ParseTime_ns("--start", text), std::llround(seconds * 1e9)) << text;
  for (char const* text :
       {"", ":", "1:", "1:2:3:4", "-1", "1e9", "1.2.3", ".", "1.5:0", "99999999999"})
    EXPECT_THROW(ParseTime_ns("--start", text), Error) << text;
}

}  // namespace
}  // namespace kestro::tool
