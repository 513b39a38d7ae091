// kestro-avi verify: each kind of damage is found where it is, and nothing in intact files.
#include "verify/Verify.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "Command.h"

namespace kestro::tool {
namespace {

class VerifyTest : public Command {
 protected:
  // A recording with audio, its index entries and its chunks.
  void SetUp() override {
    Command::SetUp();
    ASSERT_EQ(Run("record --duration 3 -o a.avi media/clip2997.h264 media/mono8k.wav").code, 0);
    _bytes = FileText(At("a.avi"));
    _entries = Entries("a.avi");
    avi::AviFile const avi(At("a.avi"));
    for (avi::Chunk const& chunk : avi.Tree())
      _chunks[avi::CodeText(chunk.type != 0 ? chunk.type : chunk.id)] = chunk.offset;
  }
  // Ids and first offsets of the findings, without notes.
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
  // The recording with other bytes at an offset.
  std::string With(int64 at, std::string const& text) const {
    return std::string(_bytes).replace(static_cast<std::size_t>(at), text.size(), text);
  }
  std::string With(int64 at, unsigned value) const {
    std::string bytes = _bytes;
    Put(bytes, static_cast<std::size_t>(at), value);
    return bytes;
  }
  std::string From(int64 at, std::size_t size = std::string::npos) const {
    return _bytes.substr(static_cast<std::size_t>(at), size);
  }
  std::string Until(int64 at) const { return _bytes.substr(0, static_cast<std::size_t>(at)); }

  std::string _bytes;
  std::vector<avi::IndexEntry> _entries;
  std::map<std::string, int64> _chunks;  // the last one of each id
  bool _usable = false;
};

TEST_F(VerifyTest, FindsEachDamageWhereItIs) {
  EXPECT_THAT(Check(_bytes, true), testing::IsEmpty());
  std::size_t odd = 20;  // a chunk of odd size
  while (_entries[odd].size % 2 == 0) ++odd;
  avi::IndexEntry const &e = _entries[odd], &next = _entries[odd + 1], &last = _entries.back();
  int64 const avih = _chunks["avih"] + 8, strh = _chunks["strh"] + 8, idx1 = _chunks["idx1"],
              movi = _chunks["movi"], strf = _chunks["strf"];
  std::string const hole(16, '\0'), entry = From(e.place, 16);
  std::string noChunk = With(idx1, "JUNK"), noPad = With(movi + 4, unsigned(idx1 - movi - 9));
  noChunk.replace(std::size_t(e.offset), 8, 8, '\xAA');
  for (std::size_t i = odd + 1; i < _entries.size(); ++i)
    Put(noPad, std::size_t(_entries[i].place) + 8, unsigned(_entries[i].offset) - 1);
  noPad.erase(std::size_t(next.offset) - 1, 1);
  struct {
    char const* id;
    int64 offset;
    std::string bytes;
  } const cases[] = {
      {"riff-size", 0, With(4, 0)},
      {"riff-size", 0, With(4, unsigned(movi))},
      {"riff-size", 0, Until(int64(_bytes.size()) - 5)},
      {"movi-size", movi, With(movi + 4, 0)},
      {"movi-size", movi, With(movi + 4, unsigned(e.offset - movi - 8))},
      {"movi-size", movi, With(movi + 4, unsigned(idx1 - movi))},
      {"chunk-cut", strh - 8, With(strh - 4, 9999)},
      {"main-header", avih - 8, With(avih - 8, "JUNK")},
      {"stream-count", avih + 24, With(avih + 24, 3)},
      {"frame-count", avih + 16, With(avih + 16, 7)},
      {"frame-time", avih, With(avih, 66666)},
      {"picture-size", avih + 32, With(avih + 36, 0)},
      {"rate", strh + 20, With(strh + 20, 0)},
      {"sound-rate", strh + 20, With(strh + 24, 8000)},
      {"sound-format", strf, With(strf + 10, "\7")},
      {"length", strh + 32, With(strh + 32, 8000)},
      {"no-index", idx1, With(idx1, "JUNK")},
      {"no-index", idx1, Until(idx1)},
      {"index-empty", idx1, With(idx1 + 8, std::string(From(idx1).size() - 8, '\0'))},
      {"index-hole", e.place, With(e.place, hole)},
      {"not-indexed", e.offset, With(e.place, hole)},
      {"entry-id", e.place, With(e.place, "x")},
      {"entry-track", e.place, With(e.place + 1, "7")},
      {"entry-flags", e.place, With(e.place + 4, 0x80000010)},
      {"entry-offset", e.place, With(e.place + 8, unsigned(e.offset) + 1)},
      {"entry-offset", e.place, With(e.place + 8, 0xFFFFFFFF)},
      {"entry-offset", idx1 + 8, With(idx1 + 16, 5)},
      {"entry-size", e.place, With(e.place + 12, 0)},
      {"entry-order", next.place, With(e.place, From(next.place, 16) + entry)},
      {"entry-twice", next.place, With(next.place, entry)},
      {"chunk-id", e.offset, With(e.offset, "x")},
      {"chunk-size", e.offset, With(e.offset + 4, 0)},
      {"chunk-size", e.offset, With(e.offset + 4, 0xFFFFFFFF)},
      {"no-chunk", e.offset, noChunk},
      {"data-cut", last.offset, Until(last.offset + 20)},
      {"data-cut", e.offset, Until(next.offset - 3)},
      {"pad-value", next.offset - 1, With(next.offset - 1, "x")},
      {"pad-missing", next.offset - 1, noPad},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.id + (" " + std::to_string(&c - cases)));
    auto const offsets = Check(c.bytes);
    EXPECT_THAT(offsets, testing::Contains(testing::Pair(c.id, c.offset)))
        << testing::PrintToString(offsets);
    EXPECT_TRUE(_usable);
  }
}

TEST_F(VerifyTest, FindsWrongKeyFlagsByTheData) {
  auto const video = Entries("a.avi", 0);
  avi::IndexEntry const &key = video[30], &other = video[31];
  std::string cleared = With(key.place + 4, 0);
  EXPECT_THAT(Check(cleared), testing::IsEmpty());
  EXPECT_THAT(Check(cleared, true), testing::ElementsAre(testing::Pair("key-unmarked", key.place)));
  EXPECT_THAT(Check(With(other.place + 4, avi::IndexEntry::kKey), true),
              testing::ElementsAre(testing::Pair("key-false", other.place)));
  for (avi::IndexEntry const& entry : _entries) Put(cleared, std::size_t(entry.place) + 4, 0);
  EXPECT_THAT(Check(cleared), testing::ElementsAre(testing::Pair("no-key", _chunks["idx1"])));
}

// Other writers use flags of their own; readers may take any of them for a key frame.
TEST_F(VerifyTest, NotesAnIndexThatFlagsEveryFrame) {
  std::string keys = Until(_chunks["idx1"] + 8);
  for (avi::IndexEntry const& entry : _entries)
    if (entry.flags != 0) keys += From(entry.place, 16);
  Put(keys, std::size_t(_chunks["idx1"]) + 4,
      unsigned(keys.size()) - unsigned(_chunks["idx1"]) - 8);
  Write("keys.avi", keys);
  MakeUnusual("a.avi");
  Expect("verify flagged.avi", {{"", 0, "note all-keys"}, {"--deep", 0, "found 2"}});
  EXPECT_THAT(Run("verify keys.avi").out, testing::Not(testing::HasSubstr("all-keys")));
}

TEST_F(VerifyTest, KeepsTheFirstOfManyAndCountsAll) {
  std::string bytes = _bytes;
  for (avi::IndexEntry const& entry : _entries) Put(bytes, std::size_t(entry.place) + 12, 1);
  Write("many.avi", bytes);
  Write("wave.avi", "RIFF    WAVEfmt ");
  Result const result = Run("verify --json a.avi many.avi wave.avi");
  EXPECT_EQ(result.code, 4);
  auto const json = nlohmann::json::parse(result.out), &files = json["files"], &many = files[1];
  EXPECT_EQ(json["schema"], 1);
  EXPECT_TRUE(files[0]["findings"].empty());
  EXPECT_EQ(many["counts"]["entry-size"], _entries.size());
  EXPECT_EQ(many["errors"], _entries.size());
  EXPECT_EQ(many["findings"].size(), Findings::kKept);
  EXPECT_EQ(many["findings"][0], (nlohmann::json{{"id", "entry-size"},
                                                 {"severity", "error"},
                                                 {"found", 1},
                                                 {"offset", _entries[0].place},
                                                 {"expected", _entries[0].size}}));
  EXPECT_FALSE(files[2]["usable"]);
  EXPECT_EQ(files[2]["findings"][0]["id"], "not-avi");
}

TEST_F(VerifyTest, ExitCodes) {
  MakeUnusual("a.avi");
  ASSERT_EQ(Run("record -o audio.avi media/mono8k.wav").code, 0);
  EXPECT_EQ(Run("verify a.avi").out, "a.avi: clean\n");
  std::pair<std::string, int> const cases[] = {
      {"audio relative", 0}, {"nowhere noindex empty cut", 1}, {"none", 3}, {"nostrl text", 4}};
  for (auto const& [files, code] : cases) {
    std::istringstream names(files);
    for (std::string name; names >> name;) Expect("verify", {{name + ".avi", code, ""}});
  }
  EXPECT_THAT(Check(With(_chunks["movi"] + 8, "none")), testing::Contains(testing::Key("no-movi")));
  EXPECT_FALSE(_usable);
}

TEST_F(VerifyTest, FindsNothingInFilesOfOtherWriters) {
  if (!Has("ffmpeg")) GTEST_SKIP();
  for (std::string how :
       {"mpeg4 -c:a pcm_s16le", "mjpeg -c:a mp2", "rawvideo -c:a pcm_u8", "mpeg4 -c:a ac3"}) {
    ASSERT_EQ(Shell("ffmpeg -v error -y -f lavfi -i testsrc=d=2:s=160x120:r=30000/1001 "
                    "-f lavfi -i sine=d=2:r=44100 -shortest -c:v " +
                    how + " f.avi")
                  .code,
              0)
        << how;
    EXPECT_EQ(Run("verify --deep f.avi").code, 0) << how << Run("verify f.avi").out;
  }
}

// Damage inside a key frame leaves its structure as it is.
TEST_F(VerifyTest, DecodesAndHashes) {
  ASSERT_EQ(Run("record -o good.avi media/clip25.h264 media/mono8k.wav").code, 0);
  std::string bytes = FileText(At("good.avi"));
  std::vector<avi::IndexEntry> const frames = Entries("good.avi", 0);
  for (std::size_t i = 0; i < 200; ++i)
    bytes[static_cast<std::size_t>(frames[50].offset) + 8 + frames[50].size / 2 + i] ^= 0x5A;
  Write("bad.avi", bytes);
  Expect("record --hash --segment-time 2 -o s%d.avi media/clip25.h264", {{"", 0, "s2.avi"}});
  Expect("verify --check", {{"s1.avi s2.avi", 0, "s1.avi: as hashed\ns2.avi: as hashed\n"}});
  Expect("verify", {{"--decode good.avi", 0, "clean"},
                    {"--deep bad.avi", 0, "clean"},
                    {"--decode bad.avi", 1, "damage in frame 50 of track 0\n"},
                    {"--hash good.avi bad.avi", 0, "bad.avi.sha256: written"},
                    {"--hash good.avi", 2, "exists"},
                    {"--hash --force good.avi", 0, ""},
                    {"--check good.avi bad.avi", 0, "good.avi: as hashed\nbad.avi: as hashed\n"}});
  std::string const name = "two\nlines \\.avi";
  fs::copy_file(At("good.avi"), At(name));
  Expect("verify", {{"--hash 'two\nlines \\.avi'", 0, ""}, {"--check 'two\nlines \\.avi'", 0, ""}});
  fs::rename(At(name + ".sha256"), At("two.sha256"));
  EXPECT_EQ(Shell("sha256sum -c --strict good.avi.sha256 two.sha256").code, 0);
  fs::copy_file(At("bad.avi"), At("good.avi"), fs::copy_options::overwrite_existing);
  Expect("verify --check", {{"good.avi", 1, "good.avi: changed\n  track 0, packet 50: differs\n"}});
  Write("good.avi", bytes.substr(0, bytes.size() / 2));
  Expect("verify --check", {{"good.avi", 1, ": is missing"}, {"missing.avi", 3, "missing.avi"}});
  Damage("bad.avi", "long.avi", 5, kSize, 0xFFFFFFF0);  // nothing of that size is allocated
  Expect("verify", {{"--hash long.avi", 0, ""}, {"--check long.avi", 0, "as hashed"}});
  Write("good.avi.sha256", "no hash\n");
  Expect("verify --check", {{"good.avi", 4, "good.avi.sha256, line 1"}});
}

}  // namespace
}  // namespace kestro::tool
