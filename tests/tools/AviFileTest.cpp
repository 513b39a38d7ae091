// The reader of AVI files: files of several writers, cut off and hostile ones.
#include "Command.h"
#include "avi/HeadCopy.h"
#include "avi/TrackReader.h"
#include "support/FaultIO.h"
#include "support/HostileFiles.h"

namespace kestro::tool {
namespace {

using test::Bytes;
using test::Joined;
using test::List;
using test::Plain;

// One video track of 25 fps.
Bytes Head(test::Shape const& shape = {}) {
  return List("LIST", "hdrl", test::MainHeader(shape, 3, 0).Add(test::VideoHeaders(shape, 3)));
}
Bytes const kFirst = Plain("00dc", "key").Zeros(1);
Bytes const kRest = Plain("00dc", "odd").Zeros(1).Add(Plain("00dc", "even"));
Bytes Movi(Bytes const& data = Joined({kFirst, kRest})) { return List("LIST", "movi", data); }
Bytes Riff(std::initializer_list<Bytes> parts) { return List("RIFF", "AVI ", Joined(parts)); }

// The index of that data, from the offset of the first chunk.
Bytes Index(std::size_t first) {
  test::Body const body({{"00dc", "key", true}, {"00dc", "odd", false}, {"00dc", "even", false}},
                        first);
  return Plain("idx1", {body.index.begin(), body.index.end()});
}

class AviFileTest : public Command {
 protected:
  avi::AviFile Read(Bytes const& bytes) {
    Write("a.avi", {bytes.begin(), bytes.end()});
    return avi::AviFile(At("a.avi"));
  }
};

TEST_F(AviFileTest, ReadsWhatWritersStore) {
  Bytes const head = Head();
  unsigned const movi = 12 + static_cast<unsigned>(head.size());
  test::Shape odd;
  odd.strd = "abc", odd.strn = "name";
  // With other sizes, as while recording.
  auto const unfinished = [&](unsigned riffSize, unsigned size) {
    return test::With(test::With(Riff({head, Movi()}), 4, riffSize), movi + 4, size);
  };
  std::string const cut = "was never written";
  struct {
    char const* name;
    Bytes bytes;
    std::string note;
  } const cases[] = {
      {"index ahead of the data", Riff({head, Index(movi + 12 + 56), Movi()}), ""},
      {"no index", Riff({head, Movi()}), ""},
      {"rec lists", Riff({head, Movi(List("LIST", "rec ", kFirst).Add(kRest))}), ""},
      {"odd header chunk without a pad", Riff({Head(odd), Movi()}), ""},
      {"size of movi not written", unfinished(movi + 4, 0), cut},
      {"recording under way", unfinished(movi + 4, 4), cut},
      {"no size written", unfinished(0, 0), cut},
      {"two parts", Joined({Riff({head, Movi(kFirst)}), List("RIFF", "AVIX", Movi(kRest))}),
       "2 RIFF parts"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    avi::AviFile const avi = Read(c.bytes);
    ASSERT_EQ(avi.Tracks().size(), 1u);
    avi::AviTrack const& track = avi.Tracks()[0];
    bool const indexed = &c == cases;
    EXPECT_EQ(avi.IndexPlace(), indexed ? avi::AviFile::Index::kFirst : avi::AviFile::Index::kNone);
    EXPECT_EQ(std::tuple(track.chunks, track.bytes, avi.Duration_ms()), std::tuple(3u, 10u, 120));
    EXPECT_EQ(std::tuple(track.keysKnown, track.keyChunks, avi.CutOff()),
              std::tuple(indexed, indexed ? 1u : 0u, c.note == cut));
    std::string notes;
    for (std::string const& text : avi.Notes()) notes += text;
    EXPECT_NE(notes.find(c.note), notes.npos) << notes;
    EXPECT_EQ(notes.empty(), c.note.empty()) << notes;
  }
}

// Chunks found by the index and by the data.
TEST_F(AviFileTest, FindsChunksThatTheIndexLeavesOut) {
  Bytes const a = kFirst, b = Plain("00dc", "odd").Zeros(1), c = Plain("00dc", "even");
  Bytes const empty = Plain("00dc", ""), junk = Plain("JUNK", "junk");
  Bytes const list = List("LIST", "rec ", a), garbage(std::string(16, 'g'));
  struct {
    char const* name;
    std::vector<Bytes> data;
    std::vector<unsigned> named, chunks;  // places in the data
    bool whole;
  } const cases[] = {
      {"none", {a, b, c}, {0, 12, 24}, {0, 12, 24}, true},
      {"none, in another order", {a, b, c}, {24, 0, 12}, {0, 12, 24}, true},
      {"one without data", {a, empty, b}, {0, 20}, {0, 12, 20}, true},
      {"one without data, in another order", {a, empty, b}, {20, 0}, {0, 12, 20}, true},
      {"no data", {junk, list, b}, {24, 36}, {24, 36}, true},
      {"one in the middle", {a, b, c}, {0, 24}, {0, 12, 24}, false},
      {"one, and one without data", {a, b, empty, c}, {0, 12}, {0, 12, 24, 32}, false},
      {"one in another order", {a, b, c}, {24, 0}, {0, 12, 24}, false},
      {"all but the first", {a, b, c}, {0}, {0, 12, 24}, false},
      {"two, with an entry of JUNK", {a, junk, b, c}, {0, 12}, {0, 24, 36}, false},
      {"one before bytes that are no chunk", {a, b, garbage, c}, {0, 40}, {0, 12, 40}, false},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes data;
    for (Bytes const& part : c.data) data.Add(part);
    std::string const bytes(data.begin(), data.end());
    std::size_t const first = 12 + Head().size() + 12;
    Bytes index = Bytes().Cc("idx1").U32(unsigned(16 * c.named.size()));
    for (unsigned at : c.named)
      index.Cc("00dc").U32(0x10).U32(unsigned(first) + at).U32(Get(bytes, at + 4));
    avi::AviFile avi = Read(Riff({Head(), Movi(data), index}));
    EXPECT_EQ(avi.Indexed(), c.whole);
    EXPECT_EQ(avi.Notes().empty(), c.whole);
    EXPECT_EQ(avi.Tracks()[0].chunks, c.whole ? c.named.size() : c.chunks.size());
    EXPECT_EQ(avi.Tracks()[0].indexedChunks, c.named.size());
    std::vector<unsigned> found;
    avi.ForEachChunk([&](avi::IndexEntry const& entry) {
      found.push_back(unsigned(entry.offset - base::int64(first)));
    });
    EXPECT_EQ(found, c.chunks);
  }
}

TEST_F(AviFileTest, ReadsNoDataThatTheIndexCovers) {
  Bytes data, index = Bytes().Cc("idx1").U32(16 * 100);
  std::size_t const first = 12 + Head().size() + 12;
  for (int i = 0; i < 100; ++i) {
    index.Cc("00dc").U32(16, first + data.size(), 8192);
    data.Add(Plain("00dc", std::string(8192, 'x')));
  }
  Bytes const bytes = Riff({Head(), Movi(data.Add(Plain("JUNK", "junk"))), index});
  test::MemoryIO memory({bytes.begin(), bytes.end()});
  auto device = std::make_unique<test::FaultIO>(memory);
  test::FaultIO const& reads = *device;
  avi::AviFile const avi(std::move(device), "a.avi");
  EXPECT_TRUE(avi.Indexed());
  EXPECT_LT(reads.Count(test::FaultIO::kRead), 20);
}

// With one, the tests of extract use all that they may be relative to.
TEST_F(AviFileTest, OffsetsAreNotRelativeToAMoviThatIsMissing) {
  unsigned const movi = 12 + unsigned(Head().size()) - 8;
  EXPECT_EQ(Read(Riff({Head(), Joined({kFirst, kRest}), Index(movi)})).IndexBase(), -1);
}

TEST_F(AviFileTest, IgnoresChunksOfUnknownTracks) {
  EXPECT_EQ(avi::TrackOfCode(base::Convert4("12dc")), 12);
  unsigned const first = 12 + unsigned(Head().size()) + 12;
  test::Body const body({{"01dc", "none", true}, {"00dc", "data", true}}, first);
  Bytes const index = Plain("idx1", {body.index.begin(), body.index.end()});
  avi::AviFile avi = Read(Riff({Head(), body.movi, index}));
  std::vector<std::size_t> tracks;
  avi::TrackReader(avi, {true, true}).ForEach([&](std::size_t track, avi::Piece const&) {
    tracks.push_back(track);
    return true;
  });
  EXPECT_EQ(tracks, std::vector<std::size_t>{0});
}

// The size of JUNK in it is at most that of the file.
TEST_F(AviFileTest, FindsACopyOfTheHead) {
  for (unsigned const junk : {8192u, 8193u}) {
    std::string file(8192, '\0');
    std::string const copy = avi::HeadCopy::Compose("RIFF", {0, 0, 0, junk});
    file.replace(4096, copy.size(), copy);
    avi::RiffReader reader(std::make_unique<test::MemoryIO>(file), "a.avi");
    EXPECT_EQ(avi::HeadCopy::Find(reader).has_value(), junk == 8192) << junk;
  }
}

TEST_F(AviFileTest, ReadsTheCodecOfAnExtensibleFormat) {
  Bytes const strl = test::AudioHeaders(1);
  Bytes const strh(std::string(strl.begin() + 12, strl.begin() + 76));
  for (auto [real, codec] : {std::pair(1u, "pcm"), {3u, "pcm-float"}}) {
    SCOPED_TRACE(codec);
    Bytes const strf = Bytes().Cc("strf").U32(40).U16(0xFFFE).Zeros(22).U16(real).Zeros(14);
    Bytes const list = List("LIST", "strl", Joined({strh, strf}));
    EXPECT_EQ(Read(Riff({List("LIST", "hdrl", list), Movi()})).Tracks()[0].codec, codec);
  }
}

TEST_F(AviFileTest, BoundsWhatHostileFilesCost) {
  Bytes const nested = Bytes().Cc("LIST").U32(0x7FFFFFFF).Cc("abcd");
  EXPECT_LT(Read(Riff({Head(), test::Copies(nested, 1000)})).Tree().size(), 64u);
  EXPECT_LE(Read(Riff({Head(), test::Copies(Plain("JUNK", ""), 200000)})).Tree().size(), 65536u);
}

}  // namespace
}  // namespace kestro::tool
