// What "info" shows of coded pictures and tags.
#include <gmock/gmock.h>

#include "avi/VideoFormat.h"
#include "tools/Command.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

std::optional<avi::VideoFormat> ReadFormat(char const* codec, std::string const& bytes) {
  return avi::VideoFormat::Read(codec, reinterpret_cast<std::uint8_t const*>(bytes.data()),
                                bytes.size());
}

// Written by encoders, except for those with scaling lists, which have every optional part before
// the aspect ratio.
TEST(VideoFormat, IsReadFromTheFirstBytesOfAFrame) {
  struct {
    char const *name, *codec, *bytes, *format;
  } const cases[] = {
      {"baseline", "h264", "000000016742c00dd90141fb011000000300100000030320f142a480",
       "Constrained Baseline 1.3 8 4:2:0 1:1 320x240 by 0"},
      {"baseline 1b", "h264", "000000016742d00bd90141fb011000000300100000030320f142a480",
       "Constrained Baseline 1b 8 4:2:0 1:1 320x240 by 0"},
      {"extended 1b", "h264", "000000016758d00bd90141fb011000000300100000030320f142a480",
       "Extended 1b 8 4:2:0 1:1 320x240 by 0"},
      {"interlaced", "h264",
       "000000016d7a00"
       "00000001677a0015b6cd941410fc4e0220000003002000000643e28532c0",
       "High 4:2:2 2.1 10 4:2:2 1:1 interlaced 320x240 by 2"},
      {"level 1b", "h264", "0000000167640009acd94141fb041000000300100000030320f1225960",
       "High 1b 8 4:2:0 16:11 320x240 by 2"},
      {"4:4:4", "h264", "0000000167f4000d919b28283f6022000003000200000300641e28532c",
       "High 4:4:4 Predictive 1.3 8 4:4:4 1:1 320x240 by 2"},
      {"scaling lists", "h264",
       "000000016764000dad841249249249248452055ffffffffffffffff54e469a0507fefff00070005004",
       "High 1.3 8 4:2:0 7:5 320x236"},
      {"10 bits", "hevc",
       "0000000142010102200000030050000003000003003ca00a080f1365959a4932bc11a0200000030020000003032"
       "1",
       "Main 10 2.0 10 4:2:0 16:11 interlaced"},
      {"fields", "hevc",
       "0000000142010101600000030040000003000003003ca00a080f16592a4932bc05a1a000000300200000030321",
       "Main 2.0 8 4:2:0 1:1 interlaced"},
      {"high tier", "hevc",
       "000000014201012408000003009988000003000099a00a080f114a5959a4932bc05a02000003000200000300321"
       "0",
       "Range Extensions 5.1 high tier 12 4:2:0 1:1"},
      {"sub-layers", "hevc",
       "0000000142010201600000030090000003000003003cc00001600000030090000003000003003ca00a080f16595"
       "94acb24995e06d0100000030010000003019080",
       "Main 2.0 8 4:2:0 10:11"},
      {"scaling lists and reference sets", "hevc",
       "0000000142010101600000030090000003000003005da00a080f16595e493dafffed7fff6bfffb5ffffffffffff"
       "fffdafffffffffffffffed7fffffffffffffff75fffffffffffffffdd7fffffffffffffff75fffffffffffffffd"
       "d7fffffffffffffff2ef6235ebe397d81c1461f6a020203d82",
       "Main 3.1 8 4:2:0 3:2 interlaced"},
      {"in a progressive JPEG", "mjpeg",
       "ffd8ffe00004abcdffffc2001108001000100301210002110003110000", "progressive  8 4:2:2 0:0"},
      {"equal factors", "mjpeg", "ffd8ffc0001108001000100301120002120003120000",
       "baseline  8 4:4:4 0:0"},
      {"grey", "mjpeg", "ffd8ffc1000b0c0010001001011100", "extended  12 4:0:0 0:0"},
      {"other factors", "mjpeg", "ffd8ffc0001108001000100301310002110003110000",
       "baseline  8  0:0"},
      {"a slice first", "h264", "000000016588840000000167640009acd94141", ""},
      {"4:2:6", "h264", "000000016764000d3100000000000000000000", ""},
      {"SOF beyond the end", "mjpeg", "ffd8ffc0001308001000100301120002120003120000", ""},
      {"no picture", "mjpeg", "ffd8ffd9", ""},
  };
  for (auto const& c : cases) {
    std::string const bytes = FromHex(c.bytes);
    auto const found = ReadFormat(c.codec, bytes);
    std::string text;
    if (found)
      text = found->profile + " " + found->level + " " + std::to_string(found->bits) + " " +
             found->chroma + " " + std::to_string(found->aspectWidth) + ":" +
             std::to_string(found->aspectHeight) + (found->interlaced ? " interlaced" : "");
    if (found && found->width != 0)
      text += " " + std::to_string(found->width) + "x" + std::to_string(found->height);
    if (found && found->reordering) text += " by " + std::to_string(*found->reordering);
    EXPECT_EQ(text, c.format) << c.name;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      auto const cut = ReadFormat(c.codec, bytes.substr(0, size));
      EXPECT_TRUE(!cut || (found && cut->profile == found->profile)) << c.name << ", " << size;
    }
    for (std::size_t bit = 40; bit < bytes.size() * 8; ++bit) {
      std::string damaged = bytes;
      damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
      auto const other = ReadFormat(c.codec, damaged);
      EXPECT_TRUE(!other || other->bits <= 16 || *c.codec == 'm') << c.name << ", bit " << bit;
    }
  }
}

using Info = Command;

TEST_F(Info, ShowsFormatsTagsAndTheStart) {
  Write("strd.bin", std::string("\x01\x02\xff", 3));
  std::string const record = "record --force -o a.avi --strd strd.bin --strn 'front door' ";
  struct {
    char const *options, *input;
    std::vector<char const*> shown, json;
  } const cases[] = {
      {"--start-time 2026-11-22T14:56:37.5+01:00",
       "media/clip25.h264",
       {"start: 2026-11-22T13:56:37.500Z (clock set)", "software: kestro ",
        "134.9 kbit/s, High, level 1.2, 8 bits, parameter sets do not change\n",
        "name (strn): front door, stream data (strd): 4 "},
       {"\"start\": \"2026-11-22T13:56:37.500Z\"", "\"clock\": \"set\"", "\"bit_rate\": 134898",
        "\"begin\": \"0102ff00\"", "\"display_aspect\": \"16:9\"", "\"parameter_set_changes\": 0"}},
      {"--isft 'me; start +1.500 s; clock since boot'",
       "media/clip25.h265",
       {"start: 1.500 s after boot (clock not set)", "software: me\n", "Main, level "},
       {"\"start_ms_since_boot\": 1500", "\"clock\": \"since boot\"", "\"software\": \"me\""}},
      {"--isft \"$(printf 'x%.0s' $(seq 200))\"",
       "changing.h264",
       {"software: xxxx", "xxx...\n", "parameter sets change 1 time, first at 4.000 s"},
       {"\"parameter_set_changes\": 1", "\"first_change_ms\": 4000"}},
  };
  std::string const clip = FileText(At("media/clip25.h264"));  // then the same of another level
  Write("changing.h264", clip + Replaced(clip, FromHex("6764000C"), FromHex("6764000D")));
  for (auto const& c : cases) {
    std::string const name = std::string(c.options) + " " + c.input;
    EXPECT_LE(Run(record + "--fps 25 " + name).code, 1) << name;
    Result const text = Run("info --deep a.avi"), json = Run("info --deep --json a.avi");
    for (char const* line : c.shown) EXPECT_THAT(text.out, HasSubstr(line)) << name;
    for (char const* line : c.json) EXPECT_THAT(json.out, HasSubstr(line)) << name;
  }
}

TEST_F(Info, SurvivesTagsOfAnySizeAndContent) {
  ASSERT_EQ(Run("record -o a.avi --isft aaaabbbb --strn name media/clip25.h264").code, 0);
  std::string const bytes = FileText(At("a.avi"));
  std::size_t const isft = bytes.find("isft"), strn = bytes.find("strn");
  struct {
    char const* name;
    std::size_t at;
    std::string patch;
    char const* shown;
  } const cases[] = {
      {"huge isft", isft + 4, "\xff\xff\xff\xff", "software: aaaabbbb"},
      {"huge strn", strn + 4, "\xff\xff\xff\x7f", "name (strn): name"},
      {"zeros", isft + 8, std::string(8, '\0'), "track 0: video h264"},
      {"control characters", isft + 8, "\x1b]0;a\x07\n", "\x1b]0;a"},
      {"not UTF-8", strn + 8, "\xff\xfe\xc0\x80", "name (strn)"},
  };
  for (auto const& c : cases) {
    std::string damaged = bytes;
    Write("b.avi", damaged.replace(c.at, c.patch.size(), c.patch));
    EXPECT_THAT(Run("info b.avi").out, HasSubstr(c.shown)) << c.name;
    EXPECT_THAT(Run("info --json b.avi").out, Not(HasSubstr("\x1b"))) << c.name;
  }
}

}  // namespace
}  // namespace kestro::tool
