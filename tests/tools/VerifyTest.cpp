// kestro-avi verify: each kind of damage is found where it is, and nothing in sound files.
#include "verify/Verify.h"

#include <nlohmann/json.hpp>

#include "Command.h"

namespace kestro::tool {
namespace {

class VerifyTest : public Command {
 protected:
  // A recording with sound, and where everything stands in it.
  void SetUp() override {
    Command::SetUp();
    ASSERT_EQ(Run("record -o a.avi media/clip2997.h264 media/mono8k.wav").code, 0);
    _bytes = FileText(At("a.avi"));
    AviFile avi(At("a.avi"));
    avi.ForEachEntry([&](IndexEntry const& entry) { _entries.push_back(entry); });
    for (Chunk const& chunk : avi.Tree())
      _chunks[CodeText(chunk.type != 0 ? chunk.type : chunk.id)] = chunk.offset;
  }
  // Ids with the offset of the first finding of each; what is above a note only, if wanted.
  std::map<std::string, int64> Check(std::string const& bytes, bool deep = false) {
    Write("b.avi", bytes);
    Findings findings;
    _usable = Verify(At("b.avi"), deep, findings);
    std::map<std::string, int64> offsets;
    for (auto const& group : findings.Groups())
      if (group.kind->severity != Severity::kNote)
        offsets[group.kind->id] = group.first.front().offset;
    return offsets;
  }
  static void Put(std::string& bytes, int64 at, unsigned value) {
    for (std::size_t i = 0; i < 4; ++i)
      bytes[static_cast<std::size_t>(at) + i] = static_cast<char>(value >> 8 * i);
  }

  std::string _bytes;
  std::vector<IndexEntry> _entries;
  std::map<std::string, int64> _chunks;  // the last one of each id
  bool _usable = false;
};

TEST_F(VerifyTest, FindsEachDamageWhereItIs) {
  EXPECT_THAT(Check(_bytes, true), testing::IsEmpty());
  std::size_t odd = 20;  // a chunk of odd size
  while (_entries[odd].size % 2 == 0) ++odd;
  IndexEntry const &e = _entries[odd], &next = _entries[odd + 1], &last = _entries.back();
  int64 const avih = _chunks["avih"] + 8, strh = _chunks["strh"] + 8, idx1 = _chunks["idx1"],
              movi = _chunks["movi"], strf = _chunks["strf"];
  using Bytes = std::string;
  struct {
    char const* id;
    int64 offset;
    std::function<void(Bytes&)> damage;
  } const cases[] = {
      {"riff-size", 0, [&](Bytes& b) { Put(b, 4, 0); }},
      {"riff-size", 0, [&](Bytes& b) { Put(b, 4, unsigned(movi)); }},
      {"riff-size", 0, [&](Bytes& b) { b.resize(b.size() - 5); }},
      {"movi-size", movi, [&](Bytes& b) { Put(b, movi + 4, 0); }},
      {"movi-size", movi, [&](Bytes& b) { Put(b, movi + 4, unsigned(e.offset - movi - 8)); }},
      {"movi-size", movi, [&](Bytes& b) { Put(b, movi + 4, unsigned(idx1 - movi)); }},
      {"chunk-cut", strh - 8, [&](Bytes& b) { Put(b, strh - 4, 9999); }},
      {"main-header", avih - 8, [&](Bytes& b) { Put(b, avih - 8, 0x4B4E554A); }},
      {"stream-count", avih + 24, [&](Bytes& b) { Put(b, avih + 24, 3); }},
      {"frame-count", avih + 16, [&](Bytes& b) { Put(b, avih + 16, 7); }},
      {"frame-time", avih, [&](Bytes& b) { Put(b, avih, 66666); }},
      {"picture-size", avih + 32, [&](Bytes& b) { Put(b, avih + 36, 0); }},
      {"rate", strh + 20, [&](Bytes& b) { Put(b, strh + 20, 0); }},
      {"sound-rate", strh + 20, [&](Bytes& b) { Put(b, strh + 24, 8000); }},
      {"sound-format", strf, [&](Bytes& b) { b[std::size_t(strf) + 10] = 7; }},
      {"length", strh + 32, [&](Bytes& b) { Put(b, strh + 32, 8000); }},
      {"no-index", idx1, [&](Bytes& b) { b.replace(std::size_t(idx1), 4, "JUNK"); }},
      {"no-index", idx1, [&](Bytes& b) { b.resize(std::size_t(idx1)); }},
      {"index-empty", idx1,
       [&](Bytes& b) {
         b.replace(std::size_t(idx1) + 8, Bytes::npos, b.size() - std::size_t(idx1) - 8, '\0');
       }},
      {"index-hole", e.place, [&](Bytes& b) { b.replace(std::size_t(e.place), 16, 16, '\0'); }},
      {"not-indexed", e.offset, [&](Bytes& b) { b.replace(std::size_t(e.place), 16, 16, '\0'); }},
      {"entry-id", e.place, [&](Bytes& b) { b[std::size_t(e.place)] = 'x'; }},
      {"entry-track", e.place, [&](Bytes& b) { b[std::size_t(e.place) + 1] = '7'; }},
      {"entry-flags", e.place, [&](Bytes& b) { Put(b, e.place + 4, 0x80000010); }},
      {"entry-offset", e.place, [&](Bytes& b) { Put(b, e.place + 8, unsigned(e.offset) + 1); }},
      {"entry-offset", e.place, [&](Bytes& b) { Put(b, e.place + 8, 0xFFFFFFFF); }},
      {"entry-offset", idx1 + 8, [&](Bytes& b) { Put(b, idx1 + 16, 5); }},
      {"entry-size", e.place, [&](Bytes& b) { Put(b, e.place + 12, 0); }},
      {"entry-order", next.place,
       [&](Bytes& b) {
         b.replace(
             std::size_t(e.place), 32,
             _bytes.substr(std::size_t(next.place), 16) + _bytes.substr(std::size_t(e.place), 16));
       }},
      {"entry-twice", next.place,
       [&](Bytes& b) {
         b.replace(std::size_t(next.place), 16, _bytes.substr(std::size_t(e.place), 16));
       }},
      {"chunk-id", e.offset, [&](Bytes& b) { b[std::size_t(e.offset)] = 'x'; }},
      {"chunk-size", e.offset, [&](Bytes& b) { Put(b, e.offset + 4, 0); }},
      {"chunk-size", e.offset, [&](Bytes& b) { Put(b, e.offset + 4, 0xFFFFFFFF); }},
      {"no-chunk", e.offset,
       [&](Bytes& b) {
         b.replace(std::size_t(e.offset), 8, 8, '\xAA');
         b.replace(std::size_t(idx1), 4, "JUNK");
       }},
      {"data-cut", last.offset, [&](Bytes& b) { b.resize(std::size_t(last.offset) + 20); }},
      {"data-cut", e.offset, [&](Bytes& b) { b.resize(std::size_t(next.offset) - 3); }},
      {"pad-value", next.offset - 1, [&](Bytes& b) { b[std::size_t(next.offset) - 1] = 'x'; }},
      {"pad-missing", next.offset - 1,
       [&](Bytes& b) {
         b.erase(std::size_t(next.offset) - 1, 1);
         Put(b, movi + 4, unsigned(idx1 - movi - 9));
         for (std::size_t i = odd + 1; i < _entries.size(); ++i)
           Put(b, _entries[i].place + 7, unsigned(_entries[i].offset) - 1);
       }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.id + (" " + std::to_string(&c - cases)));
    Bytes bytes = _bytes;
    c.damage(bytes);
    auto const offsets = Check(bytes);
    EXPECT_THAT(offsets, testing::Contains(testing::Pair(c.id, c.offset)))
        << testing::PrintToString(offsets);
    EXPECT_TRUE(_usable);
  }
}

TEST_F(VerifyTest, LooksForKeyFramesInTheData) {
  std::string cleared = _bytes, marked = _bytes;
  IndexEntry key, other;  // one in the middle, and the video frame behind it
  for (IndexEntry const& entry : _entries) {
    bool const video = TrackOfCode(entry.id) == 0;
    if (video && key.id != 0 && other.id == 0) other = entry;
    if ((entry.flags & IndexEntry::kKey) != 0 && &entry != &_entries[0] && key.id == 0) key = entry;
  }
  Put(cleared, key.place + 4, 0);
  Put(marked, other.place + 4, IndexEntry::kKey);
  EXPECT_THAT(Check(cleared), testing::IsEmpty());
  EXPECT_THAT(Check(cleared, true), testing::ElementsAre(testing::Pair("key-unmarked", key.place)));
  EXPECT_THAT(Check(marked, true), testing::ElementsAre(testing::Pair("key-false", other.place)));
  for (IndexEntry const& entry : _entries) Put(cleared, entry.place + 4, 0);
  EXPECT_THAT(Check(cleared), testing::ElementsAre(testing::Pair("no-key", _chunks["idx1"])));
}

TEST_F(VerifyTest, FindsEveryCut) {
  for (std::size_t n = 0; n < _bytes.size(); n += 3001)
    EXPECT_THAT(Check(_bytes.substr(0, n)), testing::Not(testing::IsEmpty())) << n;
}

TEST_F(VerifyTest, KeepsTheFirstOfManyAndCountsAll) {
  std::string bytes = _bytes;
  for (IndexEntry const& entry : _entries) Put(bytes, entry.place + 12, 1);
  Write("many.avi", bytes);
  Write("wave.avi", "RIFF    WAVEfmt ");
  Result const result = Run("verify --json a.avi many.avi wave.avi");
  EXPECT_EQ(result.code, 4);
  auto const json = nlohmann::json::parse(result.out);
  EXPECT_EQ(json["schema"], 1);
  EXPECT_TRUE(json["files"][0]["findings"].empty());
  auto const& many = json["files"][1];
  EXPECT_EQ(many["counts"]["entry-size"], _entries.size());
  EXPECT_EQ(many["errors"], _entries.size());
  EXPECT_EQ(many["findings"].size(), Findings::kKept);
  auto const first = nlohmann::json{{"id", "entry-size"},
                                    {"severity", "error"},
                                    {"offset", _entries[0].place},
                                    {"expected", _entries[0].size},
                                    {"found", 1}};
  EXPECT_EQ(many["findings"][0], first);
  EXPECT_FALSE(json["files"][2]["usable"]);
  EXPECT_EQ(json["files"][2]["findings"][0]["id"], "not-avi");
}

TEST_F(VerifyTest, TellsByItsExitCode) {
  MakeUnusual("a.avi");
  std::pair<char const*, int> const codes[] = {
      {"a.avi", 0},   {"relative.avi", 0}, {"nowhere.avi", 1}, {"noindex.avi", 1}, {"empty.avi", 1},
      {"cut.avi", 1}, {"none.avi", 3},     {"nostrl.avi", 4},  {"text.avi", 4},    {"wave.avi", 4}};
  for (auto const& [name, code] : codes)
    EXPECT_EQ(Run(std::string("verify ") + name).code, code) << name;
  EXPECT_THAT(Run("verify a.avi").out, "a.avi: clean\n");
  std::string bytes = _bytes;
  bytes.replace(bytes.find("movi"), 4, "none");
  EXPECT_THAT(Check(bytes), testing::Contains(testing::Key("no-movi")));
  EXPECT_FALSE(_usable);
}

TEST_F(VerifyTest, FindsNothingInFilesOfOtherWriters) {
  if (!Has("ffmpeg")) GTEST_SKIP();
  std::string const source =
      "ffmpeg -v error -y -f lavfi -i testsrc=d=2:s=160x120:r=30000/1001"
      " -f lavfi -i sine=d=2:r=44100 -shortest ";
  for (char const* how : {"-c:v mpeg4 -c:a pcm_s16le", "-c:v mjpeg -c:a mp2",
                          "-c:v rawvideo -c:a pcm_u8", "-c:v mpeg4 -c:a ac3"}) {
    ASSERT_EQ(Shell(source + how + " f.avi").code, 0) << how;
    EXPECT_EQ(Run("verify --deep f.avi").code, 0) << how << Run("verify f.avi").out;
  }
}

}  // namespace
}  // namespace kestro::tool
