// Recording with periodic syncs.
#include <gmock/gmock.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <sstream>
#include <utility>

#include "support/FaultIO.h"
#include "support/FileLayout.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

using u64 = unsigned long long;

constexpr unsigned kHeader = 1028;  // the entries start 4 bytes before it, in a new sector
enum Way { kInPlace, kImage, kCallback };

std::vector<unsigned char> image;  // the last one handed over

void Keep(unsigned id, unsigned file, unsigned char const* data, unsigned size, unsigned header) {
  EXPECT_EQ(id, 7);
  EXPECT_EQ(file, ~0u);
  EXPECT_EQ(header, kHeader);
  image.assign(data, data + size);
}

struct Rig {
  explicit Rig(base::IO* io, Way way, Shape const& s = {}) : r(io, "VFIAviMuxer-avi-muxer-vfi") {
    Next(way, s);
    r.muxer->Set("notifyid", 7u);
    r.muxer->Set("periodicSyncCallback", &Keep);
    r.Track(VideoMedia()).Track(AudioMedia());
    if (!s.audio) r.ports[1]->Withdraw();
  }
  void Next(Way way, Shape s) {
    s.indexFirst = way != kCallback;
    s.headerSize = way == kInPlace ? 0 : kHeader;
    tags = std::make_unique<Tags>(s);
    r.muxer->Set("vidtag", tags->object.get());
    r.muxer->Set("periodicSyncEn", way != kInPlace);
    Sizes(way == kImage ? kHeader + 8 + s.reserve : s.reserve, kHeader, s.reserve + 8);
    if (!r.ports.empty()) {
      EXPECT_TRUE(r.ports[1]->Offer(s.audio ? r.media[1].get() : nullptr));
    }
  }
  void Sizes(u64 reserved, u64 header, u64 index) {
    r.muxer->Set("reservedSize", reserved);
    r.muxer->Set("periodicSyncHeaderSize", header);
    r.muxer->Set("periodicSyncIdx1Size", index);
  }

  Recording r;
  std::unique_ptr<Tags> tags;
};

// One element records all files in turn. Packets are given by their times in ms, with an "s" for
// audio, with ":" and a size in KiB. "!": a sync is due with this packet; then the device holds the
// file that ends with it, or the callback gets its headers and index.
TEST(VfiMuxer, EverySyncLeavesAnExactFile) {
  Shape plain, audio, rich, full;
  audio.audio = rich.audio = true;
  rich.isft = "software";
  rich.junk = "junk";
  full.reserve = 5 * 16 + 4;
  struct Case {
    Way way;
    Shape const& shape;
    char const* packets;
  } const cases[] = {
      {kInPlace, plain, "0 40 80 3040 3080! 6080 6081!"},
      {kImage, plain, "1:300 9000 12000:400! 15000:300 18001:30!"},  // the rest carries
      {kCallback, plain, "5 4000! 6000 8000!"},
      {kInPlace, audio, "3600000 s0 3603001! s5000 1 s3000 3002!"},  // an hour back
      {kInPlace, audio, "5000 s100 s3200 8001!"},  // another track's clock does not count
      {kInPlace, rich, "1 s4000! 5000:2000 s9000!"},
      {kImage, rich, "1:600 s4000! 9000:600!"},
      {kCallback, rich, "1 s4000! 9000!"},
      {kInPlace, full, "0 1 2 4000! 4001 4002 8000! 8001"},
      {kCallback, plain, "-9223372036853 9223372036853! 0"},  // the ends of time
      {kImage, full, "0 1 2 3 4 5000:600! 9000"},
      {kInPlace, plain, "1 4000!"},
  };
  struct : MemoryIO {
    bool Flush() override {
      durable.assign(bytes.begin(), bytes.end());
      return true;
    }
    Bytes durable;
  } io;
  Rig rig(&io, kInPlace, audio);
  for (auto const& c : cases) {
    SCOPED_TRACE(c.packets);
    rig.Next(c.way, c.shape);
    rig.r.messages.clear();
    Shape const& shape = rig.tags->s;
    base::ConsoleCapture console;
    ASSERT_TRUE(rig.r.Open());
    std::vector<Chunk> chunks;
    std::istringstream packets(c.packets);
    for (std::string p; packets >> p;) {
      bool const s = p[0] == 's';
      std::size_t const kib = p.find(':') < p.size() ? std::stoul(p.substr(p.find(':') + 1)) : 0;
      std::string const data = s ? "audio samples" : Frame(std::string(kib * 1024 + 9, 'x'));
      image.clear();
      EXPECT_TRUE(rig.r.Push(s, data, false, std::stoll(p.substr(s))));
      chunks.push_back({s ? "01wb" : "00dc", s ? data : data.substr(6), false});
      Bytes now = Expected(shape, chunks);
      if (c.way == kCallback)
        now.erase(now.begin() + kHeader, now.end() - 8 - 16 * int64(chunks.size()));
      EXPECT_EQ(p.back() == '!', now == (c.way == kCallback ? image : io.durable)) << p;
    }
    EXPECT_TRUE(rig.r.Close());
    EXPECT_EQ("", Difference(Expected(shape, chunks), io.bytes));
    bool const isFull = shape.reserve < 16 * chunks.size();
    EXPECT_TRUE(rig.r.muxer->Check());
    EXPECT_THAT(
        rig.r.messages,
        testing::ElementsAreArray(std::vector<std::string>(
            isFull, "warning: the index is full: what follows is recorded, but not played")));
    EXPECT_EQ(isFull, console.Text().find("idx1 too small, data length over") < std::string::npos);
    Playing p(&io);
    EXPECT_TRUE(p.Open());
    if (!isFull) continue;
    EXPECT_THAT(p.Times(), testing::ElementsAre(0, 40, 80, 120, 160));
  }
}

// A muxer that puts its index first does not change the tag set that it shares. The plain one opens
// while the other is being opened, with a wait and, for the thread sanitizer, without.
TEST(VfiMuxer, LeavesASharedTagSetAlone) {
  for (bool const wait : {true, false}) {
    base::ConsoleCapture console;
    Tags const shared{Shape()};
    MemoryIO plainFile;
    Recording plain(&plainFile);
    plain.Track(VideoMedia());
    struct : MemoryIO {
      bool Truncate(base::int64 size) override {  // when the output is opened
        if (opens) std::exchange(opens, nullptr)();
        return MemoryIO::Truncate(size);
      }
      std::function<void()> opens;
    } io;
    std::future<bool> pushed;
    io.opens = [&] {
      pushed = std::async(std::launch::async,
                          [&] { return plain.Open() && plain.Push(0, KeyFrame("x"), true); });
      if (wait) pushed.wait();
    };
    Recording inPlace(&io, "VFIAviMuxer-avi-muxer-vfi");
    inPlace.Track(VideoMedia());
    for (auto* r : {&inPlace, &plain}) r->muxer->Set("vidtag", shared.object.get());
    EXPECT_TRUE(inPlace.Open());
    EXPECT_TRUE(inPlace.Push(0, KeyFrame("x"), true));
    EXPECT_TRUE(pushed.get());
    EXPECT_TRUE(inPlace.Close());
    EXPECT_TRUE(plain.Close());
    auto const frame = Chunk{"00dc", StoredKeyFrame("x"), true};
    EXPECT_EQ("", Difference(Expected(Shape(), {frame}), plainFile.bytes)) << wait;
  }
}

// After it, nothing before the data is written any more.
TEST(VfiMuxer, FailedFlushIsFinal) {
  for (Way way : {kInPlace, kImage, kCallback})
    for (int nth = 2; nth < 20; ++nth) {
      SCOPED_TRACE(testing::Message() << "way " << way << " flush " << nth);
      FaultIO io;
      io.Fail({FaultIO::kFlush, nth});
      base::ConsoleCapture console;
      Rig rig(&io, way);
      rig.r.Open();
      std::size_t failed = 0;
      for (int i = 0; i < 3; ++i)
        if (!rig.r.Push(0, Frame(std::string(600000, 'x')), true, 1 + i * 4000) && failed == 0)
          failed = io.Calls(FaultIO::kWrite).size();
      bool const closed = rig.r.Close();
      EXPECT_EQ(io.Failures() == 0, closed);
      for (std::size_t i = failed; failed > 0 && i < io.Calls(FaultIO::kWrite).size(); ++i)
        EXPECT_GE(io.Calls(FaultIO::kWrite)[i].at, int64{kHeader});
    }
}

// The next packet opens the file again.
TEST(VfiMuxer, FailedOpenIsTriedAgain) {
  FaultIO io;
  io.Fail({FaultIO::kFlush, 1});
  base::ConsoleCapture console;
  Rig rig(&io, kInPlace);
  rig.r.Open();
  EXPECT_FALSE(rig.r.Push(0, Frame("x")));
  EXPECT_TRUE(rig.r.Push(0, Frame("x")));
  EXPECT_TRUE(rig.r.Close());
}

// The application gets the reason once, and the output is not touched.
TEST(VfiMuxer, RefusesSizesThatDoNotFit) {
  u64 const k2G = u64{1} << 31, k4G = u64{1} << 32;
  struct Case {
    Way way;
    u64 reserved, header, index;
  } const cases[] = {
      {kInPlace, k2G, 0, 0},      {kInPlace, k4G + 4096, 0, 0},
      {kImage, 8192, 4096, 7},    {kImage, 8192, 4096, 4097},
      {kCallback, 4095, 4096, 0}, {kImage, 4096, 0 - u64{4096}, 8192},
      {kCallback, k2G, 4096, 0},  {kImage, k4G + 8192, 4096, k4G + 4096},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.way << " " << c.reserved << " " << c.header);
    MemoryIO io("as before");
    base::ConsoleCapture console;
    Rig rig(&io, c.way);
    rig.Sizes(c.reserved, c.header, c.index);
    rig.r.Open();
    EXPECT_FALSE(rig.r.Push(0, Frame("x")));
    EXPECT_THAT(rig.r.messages,
                testing::ElementsAre("error: the sizes of head and index do not fit"));
    EXPECT_FALSE(rig.r.muxer->Check());
    EXPECT_TRUE(rig.r.muxer->CheckIO());
    EXPECT_TRUE(rig.r.Close());
    EXPECT_EQ("as before", Text(io));
  }
}

// Some stop the process with an assertion. Where the property is null, there is no
// callback.
TEST(VfiMuxerDeathTest, WrongSettings) {
  struct Case {
    Way way;
    u64 reserved, header, index;
    char const* condition;                // and the function that the assertion names
    char const* property = "idx1_first";  // of the tag set
    int value = -1;
  } const cases[] = {
      {kCallback, 9999, 230, 0, nullptr, "junksize", 4},
      {kImage, 9999, kHeader, 99, "idx1_first value .*SetMode.*`0", "idx1_first", 2},
      {kCallback, 9999, kHeader, 0, "no register sync callback.*SetMode.*`0", nullptr},
      {kImage, 9999, kHeader, 99, "BufferCreate.*`p->Max\\(\\) == p->Size\\(\\)"},
      {kImage, 9999, 200, 99, "IAviMuxer::Open\\(.*`curOfs <= \\(int64\\)_periodicSyncHeaderSize"},
      {kCallback, 9999, 231, 0, "IAviMuxer::Open\\(.*`periodicSyncHeaderRemain >= 8"},
      {kCallback, 9999, kHeader, 0, "IAviMuxer::Open\\(.*`junkEndOfs <= .*_periodicSyncHeaderSize",
       "junksize", 1000},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.condition != nullptr ? c.condition : c.property);
    MemoryIO io("as before");
    base::ConsoleCapture console;
    Shape shape;
    shape.junk = c.value > 2 ? "junk" : "";
    Rig rig(&io, c.way, shape);
    rig.Sizes(c.reserved, c.header, c.index);
    if (c.value >= 0) rig.tags->object->Set(c.property, c.value);
    if (c.property == nullptr) rig.r.muxer->Set("periodicSyncCallback", decltype(&Keep){});
    rig.r.Open();
    auto const push = [&] {
      base::cout.Redirect(nullptr);
      dup2(2, 1);
      rig.r.Push(0, Frame("x"));
    };
    if (c.condition != nullptr) {
      EXPECT_DEATH(push(), std::string(c.condition) + "' failed");
      continue;
    }
    EXPECT_FALSE(rig.r.Push(0, Frame("x"))) << c.reserved;
    EXPECT_TRUE(rig.r.Close());
    EXPECT_THAT(rig.r.messages.at(0), testing::HasSubstr("headers have no room"));
  }
}

}  // namespace
}  // namespace kestro::test
