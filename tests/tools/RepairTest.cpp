// Recordings that were cut off, and what becomes of them.
#include "repair/Repair.h"

#include <nlohmann/json.hpp>

#include "Errors.h"
#include "EveryKind.h"
#include "support/FileLayout.h"
#include "verify/Verify.h"

namespace kestro::tool {
namespace {

using nlohmann::json;
using test::Shape;
using testing::HasSubstr;

enum Way { kPlain, kInPlace, kImage, kCallback };
constexpr unsigned kHeader = 604;  // with the head of movi

struct Stored {
  std::string id, payload;
  bool key;
  std::size_t offset;
  std::size_t End() const { return offset + 8 + payload.size(); }
};

std::string handedOver;  // the last image
void Keep(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  handedOver.assign(reinterpret_cast<char const*>(data), size);
}

class RepairTest : public EveryKind {
 protected:
  // A recording of sixteen packets that is synced at each, as it was at the eighth and is at last.
  struct Recorded {
    std::string middle, image, closed;
    std::size_t start, end;  // of the data
  };
  Recorded Record(Way way) {
    LoadAviPlugin(TEST_PLUGIN);
    base::ConsoleCapture quiet;
    Shape shape;
    shape.sound = true;
    shape.isft = "soft";
    shape.strd = "data";
    shape.reserve = 20 * 16;
    shape.indexFirst = way == kInPlace || way == kImage;
    shape.headerSize = way == kImage || way == kCallback ? kHeader : 0;
    test::Tags tags(shape);
    test::MemoryIO io;
    test::Recording r(&io, way == kPlain ? "AviMuxer-avi-muxer" : "VFIAviMuxer-avi-muxer-vfi");
    r.muxer->Set("vidtag", tags.object.get());
    if (way != kPlain) {
      using u64 = unsigned long long;
      r.muxer->Set("flushtime", 1u);
      r.muxer->Set("periodicSyncEn", way != kInPlace);
      r.muxer->Set("periodicSyncCallback", &Keep);
      u64 const index = way == kCallback ? 0 : 20 * 16, image = way == kInPlace ? 0 : kHeader;
      r.muxer->Set("reservedSize", image + index + (way == kImage ? 8 : 0));
      r.muxer->Set("periodicSyncHeaderSize", u64{kHeader});
      r.muxer->Set("periodicSyncIdx1Size", index + 8);
    }
    r.Track(test::VideoMedia()).Track(test::SoundMedia(8000, 1, 4));
    EXPECT_TRUE(r.Open());
    Recorded made;
    _stored.clear();
    for (int i = 0; i < 16; ++i) {
      std::string const some(static_cast<std::size_t>(i), 'x');
      bool const sound = i % 2 == 1, key = i % 6 == 0;
      std::string const data = sound ? some + "s" : key ? test::KeyFrame(some) : test::Frame(some);
      EXPECT_TRUE(r.Push(sound, data, key, i * 40));
      _stored.push_back({sound ? "01wb" : "00dc", sound ? data : data.substr(6), key, 0});
      if (i == 7) made.middle.assign(io.bytes.begin(), io.bytes.end());
      if (i == 7) made.image = handedOver;
    }
    EXPECT_TRUE(r.Close());
    made.closed.assign(io.bytes.begin(), io.bytes.end());
    made.start = made.end = made.closed.find("movi") + 4;
    for (Stored& stored : _stored) {
      stored.offset = made.end;
      made.end = stored.End() + stored.payload.size() % 2;
    }
    return made;
  }

  // A file with every kind of track, mended; its bytes.
  std::string MakeAll() {
    Make("in.avi");
    Mend();
    return FileText(At("in.avi"));
  }
  RepairReport Mend(std::string const& image = "") {
    base::ConsoleCapture quiet;
    RepairJob job{At("in.avi"), At("out.avi"), image.empty() ? "" : At(image).string(), true};
    return Repair(job);
  }
  int Refusal(std::string const& image = "") {
    try {
      Mend(image);
    } catch (Error const& error) {
      return error.Code();
    }
    return 0;
  }

  // What the output holds, by its data; its index agrees, as a check finds.
  std::vector<Stored> Mended() {
    Findings findings;
    EXPECT_TRUE(Verify(At("out.avi"), true, findings));
    for (auto const& group : findings.Groups())
      if (group.kind->severity != Severity::kNote && group.kind != &found::kNoKey)
        ADD_FAILURE() << group.kind->id;
    std::string const bytes = FileText(At("out.avi"));
    std::vector<Stored> list;
    AviFile(At("out.avi")).ForEachEntry([&](IndexEntry const& entry) {
      auto const at = static_cast<std::size_t>(entry.offset);
      list.push_back(
          {bytes.substr(at, 4), bytes.substr(at + 8, Get(bytes, at + 4)), entry.flags != 0, at});
    });
    return list;
  }

  std::vector<Stored> _stored;
};

bool operator==(Stored const& a, Stored const& b) {
  return a.id == b.id && a.payload == b.payload && a.key == b.key;
}
void PrintTo(Stored const& s, std::ostream* out) { *out << s.id << " of " << s.payload.size(); }

// Whatever wrote it, and wherever it ends: each packet that is complete is kept, and no other.
TEST_F(RepairTest, EveryLengthKeepsEveryWholePacket) {
  std::string ordinary;
  for (Way way : {kPlain, kInPlace, kImage, kCallback}) {
    Recorded const made = Record(way);
    std::string const data = made.closed.substr(made.start, made.end - made.start);
    std::string const cut = made.middle.substr(0, made.start) + data;
    struct State {
      std::string bytes, image;
      long promised;  // packets that an index in front or in the side file names
    };
    std::vector<State> states = {{made.closed, "", way == kInPlace || way == kImage ? 16 : 0},
                                 {cut, "", way == kInPlace ? 8 : 0}};
    if (way == kCallback) states.push_back({cut, made.image, 8});
    if (way == kPlain) ordinary = made.closed;
    for (State const& state : states) {
      SCOPED_TRACE(testing::Message() << "way " << way << ", state " << &state - states.data());
      fs::remove(At("in.avi.sync"));
      if (!state.image.empty()) Write("in.avi.sync", state.image);
      Write("in.avi", state.bytes);
      for (std::size_t length = state.bytes.size(); length-- > 0;) {
        if (length + 30 < made.start && length % 50 != 0) continue;
        fs::resize_file(At("in.avi"), length);
        auto const whole = [length](Stored const& s) { return s.End() <= length; };
        auto const count = std::count_if(_stored.begin(), _stored.end(), whole);
        if (count == 0) {
          ASSERT_EQ(kUnusable, Refusal()) << length;
          continue;
        }
        RepairReport const report = Mend();
        ASSERT_EQ(Mended(), std::vector<Stored>(_stored.begin(), _stored.begin() + count))
            << length;
        auto const end = _stored[static_cast<std::size_t>(count) - 1].End();
        bool const torn = length < made.end && length > end + end % 2;
        ASSERT_EQ(torn || count < state.promised, !report.Complete()) << length;
        ASSERT_EQ(!state.image.empty(), report.source == RepairReport::Source::kImage);
        ASSERT_TRUE(FileText(At("in.avi")) == state.bytes.substr(0, length));
      }
    }
    // The index goes behind the data: nothing else distinguishes this way.
    Write("in.avi", made.closed);
    Mend();
    if (way == kInPlace) {
      EXPECT_TRUE(FileText(At("out.avi")) == ordinary);
    }
  }
}

// Wherever a sector of zeros, or another's data, takes the place of one: what it spares is kept.
TEST_F(RepairTest, LostSectorsCostOnlyWhatTheyHeld) {
  std::string const bytes = MakeAll();
  std::vector<Stored> const all = Mended();
  EXPECT_TRUE(FileText(At("out.avi")) == bytes);
  std::size_t const end = bytes.rfind("idx1");
  for (bool indexed : {true, false})
    for (std::size_t at = bytes.find("movi") + 4; at < end; at = at / 512 * 512 + 512) {
      SCOPED_TRACE(testing::Message() << at << (indexed ? " indexed" : ""));
      std::size_t const till = std::min(end, at / 512 * 512 + 512);
      std::string damaged = indexed ? bytes : bytes.substr(0, end);
      damaged.replace(at, till - at, std::string(till - at, at % 1024 < 512 ? '\0' : '\x7F'));
      Write("in.avi", damaged);
      RepairReport const report = Mend();
      std::vector<Stored> const out = Mended();
      auto next = out.begin();
      std::size_t hit = 0;
      for (Stored const& stored : all) {
        bool const spared = stored.End() <= at || stored.offset >= till;
        hit += !spared;
        while (spared && next != out.end() && !(*next == stored)) ++next;
        ASSERT_NE(next, out.end()) << stored.id << " at " << stored.offset;
      }
      EXPECT_GE(out.size() + hit, all.size());
      for (Stored const& packet : out) {  // zeros are sound
        bool const whole = std::find(all.begin(), all.end(), packet) != all.end();
        EXPECT_TRUE(whole || packet.id[2] == 'w' || at % 1024 >= 512) << packet.id;
      }
      EXPECT_EQ(report.kept.packets, out.size());
      if (!indexed) continue;
      EXPECT_EQ(report.kept.packets + report.lost.packets, all.size());
      EXPECT_EQ(report.Complete(), out.size() == all.size());
    }
}

// A chunk's header that is gone, or tells a wrong size, costs that packet at most; not even that
// where the index tells the size.
TEST_F(RepairTest, DamagedHeadersCostOnePacket) {
  std::string const bytes = MakeAll();
  std::vector<Stored> const all = Mended();
  for (bool indexed : {true, false})
    // No header, a size beyond the file, and a smaller one.
    for (std::string const& header :
         {std::string("........"), std::string("\xFF\xFF\xFF\x01"), std::string("\x04\0\0\0", 4)})
      for (Stored const& stored : all) {
        SCOPED_TRACE(testing::Message()
                     << stored.id << " at " << stored.offset << indexed << header);
        if (header[0] == 4 && stored.payload.size() < 4) continue;  // reaches into the next one
        std::string damaged = bytes.substr(0, indexed ? bytes.size() : bytes.rfind("idx1"));
        damaged.replace(stored.offset + 8 - header.size(), header.size(), header);
        Write("in.avi", damaged);
        Mend();
        std::vector<Stored> out = Mended(), others = all;
        bool const told = indexed && stored.id[3] != 'x' && stored.id != "05dc";
        if (!told) {
          auto const number = &stored - all.data();
          others.erase(others.begin() + number);
          if (out.size() == all.size()) out.erase(out.begin() + number);
        }
        ASSERT_EQ(out, others);
      }
}

TEST_F(RepairTest, SideFilesServeTheirOwnRecordingOnly) {
  Recorded const made = Record(kCallback);
  std::string const cut =
      made.middle.substr(0, made.start) + made.closed.substr(made.start, made.end - made.start);
  std::string headless = cut, other = made.image, mono = made.image;
  headless.replace(0, 512, std::string(512, '\0'));
  for (std::size_t at = made.start + 8; at + 16 <= other.size(); at += 16) other[at + 12] ^= 0x40;
  mono[mono.find("auds") + 20] ^= 1;
  Write("own", made.image);
  Write("other", other);
  Write("mono", mono);
  Write("torn", made.image.substr(0, made.image.size() - 7));
  Write("text", "no image");
  struct {
    std::string const& in;
    char const* image;
    int refused;
  } const cases[] = {
      {cut, "own", 0},          {cut, "torn", 0},          {cut, "other", kUnusable},
      {cut, "mono", kUnusable}, {cut, "text", kUnusable},  {cut, "none", kIo},
      {headless, "own", 0},     {headless, "", kUnusable}, {headless, "other", kUnusable}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.image);
    Write("in.avi", c.in);
    EXPECT_EQ(c.refused, Refusal(c.image));
    if (c.refused == 0) {
      EXPECT_EQ(Mended(), _stored);
    }
  }
  Write("in.avi", cut);
  Write("in.avi.sync", other);
  RepairReport const report = Mend();
  EXPECT_THAT(report.warnings, testing::ElementsAre(HasSubstr("it is not used")));
  EXPECT_EQ(Mended(), _stored);
}

// What the muxer stores differently is told.
TEST_F(RepairTest, WarnsOfWhatOtherWritersStore) {
  std::string const made = Record(kPlain).closed;
  test::Bytes data, index;
  auto const begin = static_cast<unsigned>(made.find("movi")) + 4;
  for (std::string const& payload : {test::KeyFrame("x"), std::string(), test::StoredFrame("y")}) {
    auto const size = static_cast<unsigned>(payload.size());
    index.Cc("00dc").U32(0x10).U32(begin + static_cast<unsigned>(data.size())).U32(size);
    data.Add(test::Plain("00dc", payload)).Zeros(size % 2);
  }
  test::Bytes bytes(made.substr(0, made.find("movi") - 8));
  bytes.Add(test::List("LIST", "movi", data))
      .Add(test::Plain("idx1", {index.begin(), index.end()}));
  Write("in.avi", {bytes.begin(), bytes.end()});
  RepairReport const report = Mend();
  EXPECT_THAT(report.warnings, testing::ElementsAre(HasSubstr("1 packet(s) are stored without"),
                                                    HasSubstr("1 empty packet(s)")));
  EXPECT_EQ(report.counts.trimmed.bytes, 6u);
  EXPECT_EQ(Mended(), (std::vector<Stored>{{"00dc", test::StoredKeyFrame("x"), true, 0},
                                           {"00dc", test::StoredFrame("y"), false, 0}}));
}

TEST_F(RepairTest, TellsWhatItDid) {
  Make("all.avi");
  Damage("all.avi", "in.avi", 1, kFlags, 0);  // a key frame
  Damage("in.avi", "in.avi", 6, kFlags, 0x10);
  Damage("in.avi", "in.avi", 7, kOffset, 5);
  auto const time = fs::last_write_time(At("in.avi"));
  Result const mended = Run("repair --json in.avi -o out.avi");
  EXPECT_EQ(mended.code, 0) << mended.err;
  json const document = json::parse(mended.out);
  EXPECT_EQ(document["keys_corrected"], 2);
  EXPECT_EQ(document["entries_astray"], 1);
  EXPECT_EQ(document["found"], 1);
  EXPECT_EQ(document["tracks"].size(), kTracks);
  EXPECT_TRUE(FileText(At("out.avi")) == FileText(At("all.avi")));
  EXPECT_TRUE(time == fs::last_write_time(At("in.avi")));

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
                    {"head.avi -o a.avi", 4, "ends within its head"},
                    {"media -o a.avi", 3, "is a directory"},
                    {"stdout.txt -o a.avi", 4, "not a RIFF file"},
                    {"half.avi -o a.avi --index first", 2, "--index"}});
  EXPECT_FALSE(fs::exists(At("a.avi")) || fs::exists(At("a.avi.part")));
  EXPECT_EQ(FileText(At("x.avi.part")), "precious");
}

}  // namespace
}  // namespace kestro::tool
