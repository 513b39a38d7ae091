// kestro-avi repair: what it keeps of recordings that were cut off or damaged.
#include "repair/Repair.h"

#include <random>

#include "EveryKind.h"
#include "avi/SlotFile.h"
#include "cli/Errors.h"
#include "support/FileLayout.h"
#include "verify/Verify.h"

namespace kestro::tool {
namespace {

using test::Shape;
using testing::HasSubstr;

enum Way { kPlain, kInPlace, kImage, kCallback };
constexpr unsigned kHeader = 604;  // with the header of movi

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
  // A recording of sixteen packets, each followed by a sync: after the eighth, and closed.
  struct Recorded {
    std::string middle, image, closed;
    std::size_t start, end;  // of the data
  };
  Recorded Record(Way way) {
    LoadAviPlugin(TEST_PLUGIN);
    base::ConsoleCapture quiet;
    Shape shape;
    shape.audio = true;
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
    r.Track(test::VideoMedia()).Track(test::AudioMedia(8000, 1, 4));
    EXPECT_TRUE(r.Open());
    Recorded made;
    _stored.clear();
    for (int i = 0; i < 16; ++i) {
      std::string const some(static_cast<std::size_t>(i), 'x');
      bool const audio = i % 2 == 1, key = i % 6 == 0;
      std::string const data = audio ? some + "s" : key ? test::KeyFrame(some) : test::Frame(some);
      EXPECT_TRUE(r.Push(audio, data, key, i * 40));
      _stored.push_back({audio ? "01wb" : "00dc", audio ? data : data.substr(6), key, 0});
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

  RepairReport Mend(std::string const& image = "") {
    base::ConsoleCapture quiet;
    RepairJob job{At("in.avi"), At("out.avi"), image.empty() ? "" : At(image).string(), true};
    return Repair(job);
  }
  int Refusal(std::string const& image = "") try {
    Mend(image);
    return 0;
  } catch (Error const& error) {
    return error.Code();
  }

  // The packets of the output, whose index must be right.
  std::vector<Stored> Mended() {
    Findings findings;
    EXPECT_TRUE(Verify(At("out.avi"), true, findings));
    for (auto const& group : findings.Groups())
      if (group.kind->severity != Severity::kNote && group.kind != &found::kNoKey)
        ADD_FAILURE() << group.kind->id;
    std::string const bytes = FileText(At("out.avi"));
    std::vector<Stored> list;
    for (avi::IndexEntry const& e : Entries("out.avi")) {
      auto const at = static_cast<std::size_t>(e.offset);
      list.push_back(
          {bytes.substr(at, 4), bytes.substr(at + 8, Get(bytes, at + 4)), e.flags != 0, at});
    }
    return list;
  }

  std::vector<Stored> _stored;
};

bool operator==(Stored const& a, Stored const& b) {
  return a.id == b.id && a.payload == b.payload && a.key == b.key;
}
void PrintTo(Stored const& s, std::ostream* out) { *out << s.id << " of " << s.payload.size(); }

// Wherever the file ends.
TEST_F(RepairTest, KeepsEveryCompletePacketAndNoOther) {
  for (Way way : {kPlain, kInPlace, kImage, kCallback}) {
    Recorded const made = Record(way);
    std::string const data = made.closed.substr(made.start, made.end - made.start);
    std::string const cut = made.middle.substr(0, made.start) + data;
    struct State {
      std::string bytes, image;
      long promised;  // packets named by an index before the data or in the side file
    };
    std::vector<State> states = {{made.closed, "", way == kInPlace || way == kImage ? 16 : 0},
                                 {cut, "", way == kInPlace ? 8 : 0}};
    if (way == kCallback) states.push_back({cut, made.image, 8});
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
  }
}

// Expects all packets that are spared, in their order; returns how many are not.
template <class Spared>
std::size_t ExpectSpared(std::vector<Stored> const& all, std::vector<Stored> const& out,
                         Spared spared) {
  std::size_t hit = 0;
  auto next = out.begin();
  for (Stored const& stored : all) {
    if (!spared(stored)) {
      ++hit;
      continue;
    }
    while (next != out.end() && !(*next == stored)) ++next;
    if (next == out.end()) ADD_FAILURE() << "lost " << stored.id << " at " << stored.offset;
    if (next == out.end()) break;
  }
  return hit;
}

// Or has a wrong size. With an index, by which some packets are kept nevertheless, and without.
TEST_F(RepairTest, ALostChunkHeaderCostsOnlyItsPacket) {
  Make("in.avi");
  Mend();
  std::string const bytes = FileText(At("in.avi"));
  EXPECT_TRUE(FileText(At("out.avi")) == bytes) << "an intact file was changed";
  std::vector<Stored> const all = Mended();
  for (bool const indexed : {true, false})
    // No header, a size beyond the file, and a smaller one.
    for (std::string const& put :
         {std::string("........"), std::string("\xFF\xFF\xFF\x01"), std::string("\4\0\0\0", 4)})
      for (Stored const& header : all) {
        if (put[0] == 4 && header.payload.size() < 4) continue;  // reaches into the next one
        std::size_t const at = header.offset + 8 - put.size();
        SCOPED_TRACE(testing::Message() << at << " " << put << indexed);
        std::string damaged = bytes.substr(0, indexed ? bytes.size() : bytes.rfind("idx1"));
        Write("in.avi", damaged.replace(at, put.size(), put));
        RepairReport const report = Mend();
        std::vector<Stored> const out = Mended();
        bool const named = indexed && header.id[3] != 'x' && header.id != "05dc";
        std::size_t const hit = ExpectSpared(all, out, [&](Stored const& stored) {
          return named || stored.End() <= at || stored.offset >= at + put.size();
        });
        EXPECT_GE(out.size() + hit, all.size());
        EXPECT_LE(out.size(), all.size());
        EXPECT_EQ(report.kept.packets, out.size());
      }
}

// Wherever it lies, of random bytes or zeros: every packet outside it is kept, and a lost head is
// replaced from its copy.
TEST_F(RepairTest, ALostSectorCostsOnlyWhatItHolds) {
  LoadAviPlugin(TEST_PLUGIN);
  std::mt19937 random(1);
  Write("t.srt", "1\n00:00:00,100 --> 00:00:00,200\ntext\n");
  for (std::string options :
       {"--sync in-place --reserve 3200 --strn abc --junk 9 media/clip25.h264 media/mono8k.wav",
        "--sync image --reserve 3200 --isft soft media/clip25.h265 t.srt media/mono8k.wav",
        "--sync callback --fps 15 media/mono8k.wav media/clip15.mjpeg"}) {
    ASSERT_EQ(Run("record --force --duration 0.24 -o in.avi " + options).code, 0);
    std::string const bytes = FileText(At("in.avi"));
    std::size_t at = bytes.find("movi") + 4;
    EXPECT_EQ(at % 4096, 0u);
    Mend();
    std::string const whole = FileText(At("out.avi"));
    std::vector<Stored> all = Mended();
    for (Stored& stored : all) stored.offset = at, at = stored.End() + stored.payload.size() % 2;
    for (std::size_t sector : {512, 4096})
      for (std::size_t from = 0; from < bytes.size(); from += sector) {
        SCOPED_TRACE(testing::Message() << options << ", " << sector << " at " << from);
        std::size_t const to = std::min(from + sector, bytes.size());
        std::string damaged = bytes;
        bool const zeros = from / sector % 2 == 1;
        for (std::size_t i = from; i < to; ++i)
          damaged[i] = static_cast<char>(zeros ? 0 : random());
        Write("in.avi", damaged);
        RepairReport const report = Mend();
        std::size_t const hit = ExpectSpared(all, Mended(), [&](Stored const& stored) {
          // Without its header, the size of some is not known.
          bool const sized = stored.id[3] != 'x' && stored.id != "01dc";
          return stored.End() <= from || stored.offset + (sized ? 8 : 0) >= to;
        });
        EXPECT_LE(report.lost.packets, hit);
        EXPECT_TRUE(report.headOfCopy || from != 0) << "the copy of the head was not used";
        EXPECT_TRUE(to > 8192 || FileText(At("out.avi")) == whole) << "another file";
      }
  }
}

// Stores images in the slots of a side file, the newest last.
void PutSlots(std::string const& path, std::vector<std::string> const& images) {
  avi::SlotFile slots(path);
  for (std::string const& image : images)
    EXPECT_TRUE(slots.Store(reinterpret_cast<unsigned char const*>(image.data()),
                            static_cast<unsigned>(image.size())));
}

TEST_F(RepairTest, SideFilesServeTheirOwnRecordingOnly) {
  Recorded const made = Record(kCallback);
  std::string const cut =
      made.middle.substr(0, made.start) + made.closed.substr(made.start, made.end - made.start);
  std::string const headless = std::string(512, '\0') + cut.substr(512);
  std::string other = made.image, mono = made.image;
  for (std::size_t at = made.start + 8; at + 16 <= other.size(); at += 16) other[at + 12] ^= 0x40;
  mono[mono.find("auds") + 20] ^= 1;
  struct {
    std::string const& in;
    std::string image;
    int refused;
  } const cases[] = {
      {cut, made.image, 0},         {cut, made.image.substr(0, made.image.size() - 7), 0},
      {cut, other, kUnusable},      {cut, mono, kUnusable},
      {cut, "no image", kUnusable}, {headless, made.image, 0},
      {headless, other, kUnusable}};
  for (auto const& c : cases)
    for (bool slots : {false, true}) {
      SCOPED_TRACE(testing::Message() << &c - cases << " " << slots);
      Write("in.avi", c.in);
      if (slots)
        PutSlots(At("image"), {other, c.image});
      else
        Write("image", c.image);
      EXPECT_EQ(c.refused, Refusal("image"));
      if (c.refused == 0) {
        EXPECT_EQ(Mended(), _stored);
      }
    }
  EXPECT_EQ(kUnusable, Refusal()) << "without a side file";
  Write("in.avi", cut);
  Write("in.avi.sync", other);
  EXPECT_THAT(Mend().warnings, testing::ElementsAre(HasSubstr("not using it")));
  EXPECT_EQ(Mended(), _stored);

  // Two side files: the one with the newer image serves.
  PutSlots(At("old"), {other});
  PutSlots(At("new"), {other, made.image});
  std::string const spoilt = FileText(At("old")).substr(0, 4200);
  for (std::string const& older : {FileText(At("old")), other, spoilt})
    for (bool swapped : {false, true}) {
      SCOPED_TRACE(testing::Message() << older.size() << " " << swapped);
      Write(swapped ? "in.avi.sync2" : "in.avi.sync", older);
      Write(swapped ? "in.avi.sync" : "in.avi.sync2", FileText(At("new")));
      EXPECT_EQ(Mend().image, At(swapped ? "in.avi.sync" : "in.avi.sync2").string());
      EXPECT_EQ(Mended(), _stored);
    }
  fs::remove(At("in.avi.sync"));
  Write("in.avi.sync2", spoilt);
  EXPECT_THAT(Mend().warnings, testing::ElementsAre(HasSubstr("both of its slots are damaged")));
}

// Which the muxer would store differently.
TEST_F(RepairTest, WarnsOfWhatOtherWritersStore) {
  std::string const made = Record(kPlain).closed, head = made.substr(0, made.find("movi") - 8);
  test::Bytes data, index;
  for (std::string const& payload : {test::KeyFrame("x"), std::string(), test::StoredFrame("y")}) {
    auto const at = static_cast<unsigned>(head.size() + 12 + data.size());
    index.Cc("00dc").U32(0x10).U32(at).U32(static_cast<unsigned>(payload.size()));
    data.Add(test::Plain("00dc", payload)).Zeros(payload.size() % 2);
  }
  test::Bytes bytes(head);
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

}  // namespace
}  // namespace kestro::tool
