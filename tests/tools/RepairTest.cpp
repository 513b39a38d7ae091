// Recordings that were cut off, and what becomes of them.
#include "repair/Repair.h"

#include <nlohmann/json.hpp>
#include <random>

#include "EveryKind.h"
#include "avi/SlotFile.h"
#include "cli/Errors.h"
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

  // What the output holds, by its data; its index agrees, as a check finds.
  std::vector<Stored> Mended() {
    Findings findings;
    EXPECT_TRUE(Verify(At("out.avi"), true, findings));
    for (auto const& group : findings.Groups())
      if (group.kind->severity != Severity::kNote && group.kind != &found::kNoKey)
        ADD_FAILURE() << group.kind->id;
    std::string const bytes = FileText(At("out.avi"));
    std::vector<Stored> list;
    avi::AviFile(At("out.avi")).ForEachEntry([&](avi::IndexEntry const& e) {
      auto const at = static_cast<std::size_t>(e.offset);
      list.push_back(
          {bytes.substr(at, 4), bytes.substr(at + 8, Get(bytes, at + 4)), e.flags != 0, at});
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

// Wherever a sector of zeros, or another's data, takes the place of one, or a chunk's header is
// gone or tells a wrong size: what the damage spares is kept, and what the index tells in spite of
// it.
TEST_F(RepairTest, DamageCostsOnlyWhatItHits) {
  Make("in.avi");
  Mend();
  std::string const bytes = FileText(At("in.avi"));
  EXPECT_TRUE(FileText(At("out.avi")) == bytes);
  std::vector<Stored> const all = Mended();
  std::size_t const end = bytes.rfind("idx1");
  struct Hole {
    std::size_t at;
    std::string put;
    Stored const* header;  // of this one; null for a sector
  };
  std::vector<Hole> holes;
  for (std::size_t at = bytes.find("movi") + 4, next; at < end; at = next) {
    next = std::min(end, at / 512 * 512 + 512);
    holes.push_back({at, std::string(next - at, at % 1024 < 512 ? '\0' : '\x7F'), nullptr});
  }
  // No header, a size beyond the file, and a smaller one.
  for (std::string const& put :
       {std::string("........"), std::string("\xFF\xFF\xFF\x01"), std::string("\4\0\0\0", 4)})
    for (Stored const& stored : all)
      if (put[0] != 4 || stored.payload.size() >= 4)  // would reach into the next one
        holes.push_back({stored.offset + 8 - put.size(), put, &stored});
  for (bool indexed : {true, false})
    for (Hole const& hole : holes) {
      SCOPED_TRACE(testing::Message() << hole.at << " " << hole.put.substr(0, 8) << indexed);
      std::string damaged = bytes.substr(0, indexed ? bytes.size() : end);
      Write("in.avi", damaged.replace(hole.at, hole.put.size(), hole.put));
      RepairReport const report = Mend();
      std::vector<Stored> const out = Mended();
      bool const told =
          hole.header && indexed && hole.header->id[3] != 'x' && hole.header->id != "05dc";
      auto next = out.begin();
      std::size_t hit = 0;
      for (Stored const& stored : all) {
        bool const spared =
            told || stored.End() <= hole.at || stored.offset >= hole.at + hole.put.size();
        hit += !spared;
        while (spared && next != out.end() && !(*next == stored)) ++next;
        ASSERT_NE(next, out.end()) << stored.id << " at " << stored.offset;
      }
      ASSERT_GE(out.size() + hit, all.size());
      ASSERT_LE(out.size(), all.size());
      for (Stored const& packet : out)  // zeros are sound
        EXPECT_TRUE(hole.header || packet.id[2] == 'w' || hole.put[0] == '\x7F' ||
                    std::find(all.begin(), all.end(), packet) != all.end())
            << packet.id;
      EXPECT_EQ(report.kept.packets, out.size());
      if (!indexed || hole.header) continue;
      EXPECT_EQ(report.kept.packets + report.lost.packets, all.size());
      EXPECT_EQ(report.Complete(), out.size() == all.size());
    }
}

// Wherever the sector lies in what the tool records: every packet outside it comes back, and with a
// head that is gone the rest is as with it.
TEST_F(RepairTest, ASectorOfGarbageCostsWhatItHolds) {
  LoadAviPlugin(TEST_PLUGIN);
  std::mt19937 random(1);
  Write("t.srt", "1\n00:00:00,100 --> 00:00:00,200\ntext\n");
  for (std::string options :
       {"--sync in-place --reserve 3200 --strn abc --junk 9 media/clip25.h264 media/mono8k.wav",
        "--sync image --reserve 3200 --isft soft media/clip25.h265 t.srt media/mono8k.wav",
        "--sync callback --fps 15 media/mono8k.wav media/clip15.mjpeg"}) {
    ASSERT_EQ(Run("record --force --duration 0.24 -o in.avi " + options).code, 0);
    std::string const bytes = FileText(At("in.avi"));
    std::size_t const start = bytes.find("movi") + 4;
    EXPECT_EQ(start % 4096, 0u);
    Mend();
    std::string const whole = FileText(At("out.avi"));
    std::vector<Stored> all = Mended();
    std::size_t at = start;
    for (Stored& stored : all) stored.offset = at, at = stored.End() + stored.payload.size() % 2;
    for (std::size_t sector : {512, 4096})
      for (std::size_t from = 0; from < bytes.size(); from += sector) {
        SCOPED_TRACE(testing::Message() << options << ", " << sector << " at " << from);
        std::size_t const to = std::min(from + sector, bytes.size());
        std::string damaged = bytes;
        for (std::size_t i = from; i < to; ++i) damaged[i] = static_cast<char>(random());
        Write("in.avi", damaged);
        RepairReport const report = Mend();
        std::vector<Stored> const out = Mended();
        auto next = out.begin();
        std::size_t hit = 0;
        for (Stored const& stored : all) {
          // Without its header, the size of some is not known.
          bool const sized = stored.id[3] != 'x' && stored.id != "01dc";
          bool const spared = stored.End() <= from || stored.offset + (sized ? 8 : 0) >= to;
          hit += !spared;
          while (spared && next != out.end() && !(*next == stored)) ++next;
          ASSERT_NE(next, out.end()) << stored.id << " at " << stored.offset;
        }
        EXPECT_LE(report.lost.packets, hit);
        EXPECT_TRUE(report.headOfCopy || from != 0);
        EXPECT_TRUE(to > 8192 || FileText(At("out.avi")) == whole);
      }
  }
}

// In slots, as they are now, the newest after others.
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
  EXPECT_THAT(Mend().warnings, testing::ElementsAre(HasSubstr("it is not used")));
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
  EXPECT_THAT(Mend().warnings, testing::ElementsAre(HasSubstr("neither of its slots is whole")));
}

// What the muxer stores differently is told.
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

// The demuxer gives numbers to the tracks that it knows only.
TEST_F(RepairTest, PutsMotionJpegAndTextLast) {
  LoadAviPlugin(TEST_PLUGIN);
  test::MemoryIO io;
  test::Recording r(&io);
  r.Track(test::VideoMedia("txt")).Track(test::VideoMedia("jpeg")).Track(test::SoundMedia());
  r.Track(test::VideoMedia());
  ASSERT_TRUE(r.Open());
  std::string const picture = "\xFF\xD8jpg", sound(7680, 's');
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(r.Push(0, "text"));
    EXPECT_TRUE(r.Push(1, "01dc" + std::string("\5\0\0\0", 4) + picture, true));
    EXPECT_TRUE(r.Push(2, sound));
    EXPECT_TRUE(r.Push(3, i == 0 ? test::KeyFrame("x") : test::Frame("x"), i == 0));
  }
  ASSERT_TRUE(r.Close());
  Write("in.avi", {io.bytes.begin(), io.bytes.end()});
  Expect("verify in.avi",
         {{"", 0, "found text before audio pcm"}, {"", 0, "found video mjpeg before audio pcm"}});
  Expect("repair",
         {{"in.avi -o out.avi", 0, "track 1: video mjpeg: kept 3 packets, 15 bytes (track 3"}});
  std::vector<Stored> const out = Mended();
  ASSERT_EQ(out.size(), 12u);
  EXPECT_EQ(std::vector<Stored>(out.begin(), out.begin() + 4),
            (std::vector<Stored>{{"02tx", "text", false, 0},
                                 {"03dc", picture, true, 0},
                                 {"00wb", sound, false, 0},
                                 {"01dc", test::StoredKeyFrame("x"), true, 0}}));
  Expect("verify out.avi", {{"", 0, "clean"}});
  Expect("play out.avi", {{"", 0, "out.avi: 6 packets"}});
}

// By the rules of "record".
TEST_F(RepairTest, SaysWhenItChangesTheSpeed) {
  Make("all.avi");
  std::string const all = FileText(At("all.avi"));
  struct {
    unsigned rate, scale, time_us;  // in the headers of H.264 and HEVC, and in the main one
    std::string options;
    int code;
    char const* said;
    unsigned whole;  // what OUT says
  } const cases[] = {
      {250000, 10000, 40000, "", 0, "out.avi: 54 packets", 25},
      {290000, 10000, 33366, "", 0, "out.avi: 54 packets", 29},
      {30000, 1001, 33366, "", 0,
       "note: in.avi, track 0: the file says 29 fps for 30000/1001; --fps chooses another rate",
       29},
      {30000, 1001, 33366, "--fps 30", 0, "out.avi: 54 packets", 30},
      {25, 1, 40000, "--fps 12.5", 0, "the file says 12 fps for 125/10", 12},
      {1000000, 16667, 16667, "", 0, "out.avi: 54 packets", 60},
      {0, 0, 40000, "", 0, "out.avi: 54 packets", 25},
      {1, 2, 2000000, "", 4,
       "track 0: a frame rate of 1/2 cannot be recorded (1 to 1000; --fps overrides it)", 0},
      {1, 2, 2000000, "--fps 1", 0, "out.avi: 54 packets", 1},
      {0, 0, 0, "", 2, "the input does not tell its frame rate; name it with --fps", 0},
      {25, 1, 40000, "--fps 0.5", 2, "a frame rate of 5/10 cannot", 0},
      {25, 1, 40000, "--fps fast", 2, "--fps: \"fast\" is not a frame rate", 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.said);
    std::string in = all;
    Put(in, in.find("avih") + 8, c.time_us);
    std::size_t const h264 = in.find("vids"), hevc = in.find("vids", h264 + 1);
    for (std::size_t strh : {h264, hevc}) Put(in, strh + 20, c.scale), Put(in, strh + 24, c.rate);
    Write("in.avi", in);
    Result const result = Run("repair --force in.avi -o out.avi " + c.options);
    EXPECT_EQ(result.code, c.code) << result.err;
    EXPECT_THAT(result.err, HasSubstr(c.said));
    bool const note = std::string(c.said).find("the file says") != std::string::npos;
    EXPECT_EQ(result.err.find("the file says") != std::string::npos, note) << result.err;
    if (c.code != 0) continue;
    avi::AviTrack const track = avi::AviFile(At("out.avi")).Tracks()[kHevc];
    EXPECT_EQ(std::pair(track.rate, track.scale), std::pair(c.whole * 10000, 10000u));
  }
  std::string two = all;
  Put(two, two.find("vids", two.find("vids") + 1) + 24, 200000);  // of HEVC
  Write("two.avi", two);
  Expect("repair --force -o out.avi two.avi",
         {{"", 1, "track 1: 20 fps beside 25 fps"}, {"--fps 20", 0, "out.avi: 54 packets"}});
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
  EXPECT_EQ(document["tracks"].size(), kTracks);
  EXPECT_EQ(std::tuple(document["keys_corrected"], document["entries_astray"], document["found"]),
            std::tuple(2, 1, 1));
  EXPECT_TRUE(FileText(At("out.avi")) == FileText(At("all.avi")));
  EXPECT_TRUE(time == fs::last_write_time(At("in.avi")));

  // Key frames of video that cannot be recorded are not looked for.
  Write("foreign.avi", Replaced(FileText(At("all.avi")), "H264", "XVID"));
  Result const foreign = Run("repair --json foreign.avi -o foreign-out.avi");
  EXPECT_EQ(foreign.code, 1) << foreign.err;
  EXPECT_EQ(json::parse(foreign.out)["keys_corrected"], 0);

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
                    {"half.avi -o a.avi --index first", 2, "--index"}});
  EXPECT_FALSE(fs::exists(At("a.avi")) || fs::exists(At("a.avi.part")));
  EXPECT_EQ(FileText(At("x.avi.part")), "precious");
}

}  // namespace
}  // namespace kestro::tool
