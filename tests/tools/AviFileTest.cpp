// The tool's own reader: files of several writers, cut off and hostile ones.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Errors.h"
#include "avi/AviFile.h"

namespace kestro::tool {
namespace {

std::string Little(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> 8 * i & 0xFF);
  return text;
}
std::string MakeChunk(std::string const& id, std::string const& data, long long size = -1) {
  return id + Little(size < 0 ? data.size() : static_cast<std::uint64_t>(size), 4) + data +
         std::string(data.size() % 2, '\0');
}
std::string List(std::string const& type, std::string const& content, long long size = -1) {
  return MakeChunk(type == "AVI " || type == "AVIX" ? "RIFF" : "LIST", type + content, size);
}

// One video track of 25 fps; `extra` follows the format.
std::string Header(std::string const& extra = "", unsigned length = 3) {
  std::string const strh = "vidsH264" + std::string(12, '\0') + Little(10000, 4) +
                           Little(250000, 4) + Little(0, 4) + Little(length, 4) +
                           std::string(20, '\0');
  std::string const strf = Little(40, 4) + Little(320, 4) + Little(180, 4) + Little(1, 2) +
                           Little(24, 2) + "H264" + std::string(20, '\0');
  return List("hdrl", MakeChunk("avih", std::string(56, '\0')) +
                          List("strl", MakeChunk("strh", strh) + MakeChunk("strf", strf) + extra));
}
std::string const kData =
    MakeChunk("00dc", "key") + MakeChunk("00dc", "odd") + MakeChunk("00dc", "even");

// Of that data, from the first chunk's offset.
std::string Index(std::uint64_t first) {
  auto const entry = [first](unsigned flags, unsigned offset, unsigned size) {
    return "00dc" + Little(flags, 4) + Little(first + offset, 4) + Little(size, 4);
  };
  return MakeChunk("idx1", entry(0x10, 0, 3) + entry(0, 12, 3) + entry(0, 24, 4));
}

class AviFileTest : public testing::Test {
 protected:
  ~AviFileTest() override { std::filesystem::remove(_path); }
  AviFile Read(std::string const& bytes) {
    std::filesystem::remove(_path);  // a new file is written faster than an old one again
    std::ofstream(_path, std::ios::binary) << bytes;
    return AviFile(_path);
  }
  // What becomes of the bytes: the exit code of an error, or 0.
  int Refusal(std::string const& bytes) {
    try {
      Read(bytes);
      return 0;
    } catch (Error const& error) {
      return error.Code();
    }
  }

 private:
  std::string const _path =
      std::filesystem::temp_directory_path() / ("kestro-avi-file-" + std::to_string(getpid()));
};

TEST_F(AviFileTest, DescribesWhatWritersDo) {
  std::string const head = Header();
  std::uint64_t const data = 12 + head.size() + 12;  // of the first chunk in movi
  std::string const movi = List("movi", kData);
  using At = AviFile::Index;
  std::string const unfinished = "was not written";
  struct {
    char const* name;
    std::string content;
    At place;
    std::string note;
  } const cases[] = {
      {"absolute offsets", head + movi + Index(data), At::kLast, ""},
      {"offsets from movi", head + movi + Index(4), At::kLast, "count from movi"},
      {"index ahead of the data", head + Index(data + 56) + movi, At::kFirst, ""},
      {"offsets astray", head + movi + Index(9999), At::kLast, "does not lead"},
      {"no index", head + movi, At::kNone, ""},
      {"empty index", head + MakeChunk("idx1", std::string(64, '\0')) + movi, At::kFirst,
       "is empty"},
      {"rec lists", head + List("movi", List("rec ", kData.substr(0, 24)) + kData.substr(24)),
       At::kNone, ""},
      {"odd header chunk without a pad",
       Header("strd" + Little(3, 4) + "abc" + MakeChunk("strn", "name")) + movi, At::kNone, ""},
      {"size of movi not written", head + List("movi", kData, 0), At::kNone, unfinished},
      {"size of movi of a recording under way", head + List("movi", kData, 4), At::kNone,
       unfinished},
  };
  auto const expect = [&unfinished](AviFile const& avi, At place, std::string const& note) {
    ASSERT_EQ(avi.Tracks().size(), 1u);
    AviTrack const& track = avi.Tracks()[0];
    EXPECT_EQ(avi.IndexPlace(), place);
    EXPECT_EQ(track.chunks, 3u);
    EXPECT_EQ(track.bytes, 10u);
    bool const counted = place != At::kNone && note != "is empty";
    EXPECT_EQ(track.keysKnown, counted);
    EXPECT_EQ(track.keyChunks, counted ? 1u : 0u);
    EXPECT_EQ(avi.CutOff(), note == unfinished);
    EXPECT_EQ(avi.Duration_ms(), 120);
    std::string notes;
    for (std::string const& text : avi.Notes()) notes += text;
    EXPECT_THAT(notes, testing::HasSubstr(note));
    EXPECT_EQ(notes.empty(), note.empty());
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    long long const size = c.note == unfinished ? static_cast<long long>(head.size()) + 16 : -1;
    expect(Read(List("AVI ", c.content, size)), c.place, c.note);
  }
  expect(Read(List("AVI ", head + List("movi", kData, 0), 0)), At::kNone, unfinished);
  expect(Read(List("AVI ", head + List("movi", kData.substr(0, 12))) +
              List("AVIX", List("movi", kData.substr(12)))),
         At::kNone, "2 RIFF parts");
}

TEST_F(AviFileTest, CountsWholeChunksOfEveryTruncation) {
  std::string const head = Header("", 0);
  std::size_t const data = 12 + head.size() + 12;
  std::string const whole = List("AVI ", head + List("movi", kData) + Index(data));
  for (std::size_t n = 0; n < whole.size(); ++n) {
    SCOPED_TRACE(n);
    std::string const cut = whole.substr(0, n);
    if (int const refusal = Refusal(cut); refusal != 0) {
      EXPECT_EQ(refusal, kUnusable);
      EXPECT_LT(n, data);
      continue;
    }
    AviFile const avi = Read(cut);
    EXPECT_TRUE(avi.CutOff());
    std::size_t const ends[] = {data + 11, data + 23, data + 36};
    auto const complete =
        std::count_if(std::begin(ends), std::end(ends), [n](std::size_t end) { return end <= n; });
    // Once an entry of the index is there, the index counts.
    auto const counted = n < data + 36 + 8 + 16 ? complete : (n - data - 44) / 16;
    EXPECT_EQ(avi.Tracks()[0].chunks, static_cast<std::uint64_t>(counted));
  }
}

TEST_F(AviFileTest, SurvivesEveryByte) {
  std::string const head = Header("", 0);
  std::string const whole =
      List("AVI ", head + MakeChunk("JUNK", "ab") + List("movi", kData) + Index(12 + head.size()));
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (int value : {0x00, 0x7F, 0x80, 0xFF}) {
      std::string bytes = whole;
      bytes[at] = static_cast<char>(value);
      int const refusal = Refusal(bytes);
      EXPECT_TRUE(refusal == 0 || refusal == kUnusable) << at << " " << value;
    }
}

TEST_F(AviFileTest, BoundsWhatHostileFilesCost) {
  std::string nested;
  for (int i = 0; i < 1000; ++i) nested += "LIST" + Little(0x7FFFFFFF, 4) + "abcd";
  std::string junk;
  for (int i = 0; i < 200000; ++i) junk += "JUNK" + Little(0, 4);
  EXPECT_LT(Read(List("AVI ", Header() + nested)).Tree().size(), 64u);
  EXPECT_LE(Read(List("AVI ", Header() + junk)).Tree().size(), 65536u);
  EXPECT_EQ(Refusal(""), kUnusable);
  EXPECT_EQ(Refusal(List("AVI ", "")), kUnusable);
  EXPECT_EQ(Refusal(MakeChunk("RIFF", "WAVEfmt ")), kUnusable);
}

}  // namespace
}  // namespace kestro::tool
