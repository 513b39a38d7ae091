// The muxer element: its states, properties and refusals.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "AviMuxer.h"
#include "base/LittleEndian.h"
#include "support/FaultIO.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Muxer : testing::Test {
  bool Start() { return r.Track(VideoMedia()).Open(); }

  MemoryIO io;
  Recording r{&io};
};

TEST_F(Muxer, TakesItsProperties) {
  auto& m = *r.muxer;
  base::ConsoleCapture console;
  int n = 0;
  EXPECT_TRUE(m.Set("listfile", std::string("7")));
  EXPECT_TRUE(m.Get("listfile", n));
  EXPECT_EQ(n, 7);
  EXPECT_THAT(console.Text(), HasSubstr("/idx1WithTmpFileThreshold:\tidx1WithTmpFile : 7\n"));
  base::Fraction rate;
  EXPECT_TRUE(m.Set("constFrameRate", "30000/1001"));
  EXPECT_TRUE(m.Get("frameRateSave", rate));
  EXPECT_EQ(base::Fraction(30000, 1001), rate);
  EXPECT_FALSE(m.Set("diskName", "KK"));
  EXPECT_FALSE(m.Set("sizeGet", 5));
  EXPECT_FALSE(m.Set("vidtag", "a text"));
  EXPECT_FALSE(m.Set("vidtag", static_cast<base::Object*>(&m))) << "not a tag set";
}

TEST_F(Muxer, WrongCallsAreRefused) {
  r.Track(VideoMedia());
  auto& m = *r.muxer;
  auto const packet = MakePacket(r.media[0].get(), KeyFrame("x"), true);
  auto const other = VideoMedia();
  EXPECT_TRUE(m.Close()) << "nothing was recorded";
  EXPECT_TRUE(m.Open()) << "no packet, no file";
  EXPECT_TRUE(m.Close()) << "no packet, no file";
  EXPECT_TRUE(io.bytes.empty()) << "no packet, no file";
  EXPECT_TRUE(m.Open());
  EXPECT_TRUE(m.ReceivePacket(*packet, nullptr));
  EXPECT_FALSE(m.Open()) << "the file is open";
  EXPECT_FALSE(m.ReceivePacket(*MakePacket(other.get(), KeyFrame("y"), true), nullptr));
  EXPECT_FALSE(m.Set("pktflags", false)) << "it stays open";
  EXPECT_TRUE(m.Close());
  auto const size = io.bytes.size();
  EXPECT_TRUE(m.Close()) << "a second time";
  EXPECT_FALSE(m.ReceivePacket(*packet, nullptr)) << "after the end";
  EXPECT_EQ(size, io.bytes.size()) << "and the file is still whole";
  EXPECT_TRUE(m.Open());
  EXPECT_TRUE(m.Set("pktflags", true));
  EXPECT_FALSE(m.ReceivePacket(*packet, nullptr)) << "the lazy open was skipped";
  EXPECT_TRUE(m.Close());
  EXPECT_TRUE(m.Check());
}

TEST_F(Muxer, FailedOpenIsTriedAgain) {
  std::string const folder = NewFolder(), path = folder + "/a.avi";
  ASSERT_EQ(0, rmdir(folder.c_str()));
  MemoryIO old("an older recording");
  FaultIO lent(old);
  lent.Fail({FaultIO::kTruncate, 1});
  r.muxer->Set("io", static_cast<base::IO*>(&lent));
  ASSERT_TRUE(Start());
  base::ConsoleCapture console;
  EXPECT_FALSE(r.Push(0, KeyFrame("x"), true));
  EXPECT_EQ("an older recording", Text(old));
  r.muxer->Set("io", static_cast<base::IO*>(nullptr));
  r.muxer->Set("path", path);
  EXPECT_FALSE(r.Push(0, KeyFrame("x"), true));
  EXPECT_FALSE(r.muxer->Check());
  EXPECT_FALSE(r.muxer->CheckIO());
  EXPECT_THAT(r.messages, ElementsAre("error: the stream cannot be emptied",
                                      "error: " + path + ": No such file or directory"));
  std::filesystem::create_directory(folder);
  EXPECT_TRUE(r.Push(0, KeyFrame("x"), true));
  EXPECT_TRUE(r.muxer->Check()) << "a successful open clears the error";
  EXPECT_TRUE(r.Close());
  EXPECT_EQ(2u, std::filesystem::remove_all(folder));
}

TEST_F(Muxer, WritesNoFileWithoutMedia) {
  ASSERT_TRUE(r.Open());
  auto const media = VideoMedia();
  auto const packet = MakePacket(media.get(), KeyFrame("x"), true);
  base::ConsoleCapture console;
  EXPECT_FALSE(r.muxer->ReceivePacket(*packet, nullptr));
  r.Track(VideoMedia("vp9"));
  EXPECT_FALSE(r.muxer->ReceivePacket(*packet, nullptr));
  r.muxer->Set("vidtag", static_cast<base::Object*>(nullptr));
  r.Track(VideoMedia());
  EXPECT_FALSE(r.Push(1, KeyFrame("x"), true)) << "without a tag set there is no tree";
  EXPECT_TRUE(io.bytes.empty());
  EXPECT_TRUE(r.Close());
}

unsigned notified[2];
void Notify(unsigned id, void*, unsigned size) { notified[id] += size; }

// Media that cannot be recorded are left out; the others outlive their ports.
TEST_F(Muxer, ReportsSizesWhileItRecords) {
  EXPECT_TRUE(r.muxer->Set("notify", &Notify));
  EXPECT_TRUE(r.muxer->Set("notifyid", 1));
  r.muxer->Set("mode", 1);
  r.Track(VideoMedia("vp9"));
  ASSERT_TRUE(Start());
  EXPECT_FALSE(r.Push(0, "x"));
  {
    auto const packet = MakePacket(r.media[1].get(), KeyFrame("1234"), true);
    packet->Flags(0xFFFFFFFF);
    EXPECT_TRUE(r.ports[1]->Push(*packet));
  }
  auto const stored = StoredKeyFrame("1234").size();
  EXPECT_EQ(8 + stored + stored % 2, notified[1]);
  long long before = 0, after = 0;
  r.muxer->Set("sizeGet", &before);
  EXPECT_EQ(224 + int64(stored) + 16 + 32768, before);
  EXPECT_EQ(40000, dynamic_cast<plugin::avi::AviMuxer&>(*r.muxer).GetDuration());
  r.ports[1]->Withdraw();
  r.media.clear();
  EXPECT_TRUE(r.Close());
  EXPECT_TRUE(r.muxer->Set("sizeGet", &after));
  EXPECT_EQ(before, after) << "frozen";
  EXPECT_EQ(1u, base::Load32(&io.bytes[0x38])) << "streams";
  EXPECT_THAT(r.messages, ElementsAre());
}

TEST_F(Muxer, StoresBlocksOf512KiB) {
  FaultIO device(io);
  r.muxer->Set("io", static_cast<base::IO*>(&device));
  ASSERT_TRUE(Start());
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(r.Push(0, std::string(600000, 'x')));
  EXPECT_TRUE(r.Close());
  auto const writes = device.Calls(FaultIO::kWrite);
  EXPECT_EQ(3, std::count_if(writes.begin(), writes.end(), [](auto const& write) {
              return write.size == 0x80000 && write.at % 0x80000 == 0;
            }));
}

TEST_F(Muxer, WarnsOnceWhenTheIndexCannotBeSpilled) {
  r.muxer->Set("listfile", 1);
  r.muxer->Set("diskName", 'Q');  // there is no such drive
  ASSERT_TRUE(Start());
  base::ConsoleCapture console;
  for (int i = 0; i < 5000; ++i) EXPECT_TRUE(r.Push(0, "x"));
  EXPECT_THAT(r.messages,
              ElementsAre("warning: the index could not be spilled to its temporary file"));
  EXPECT_TRUE(r.Close());
  EXPECT_EQ(1u, r.messages.size());
}

// Three pictures. A file on a full device keeps whole ones and their index. If the device fails and
// does not take the index, everything stays for a repair.
TEST_F(Muxer, EndsWithWhatTheDeviceTakes) {
  constexpr int64 kEnd = 224 + 3 * 1008;
  struct {
    int64 capacity;
    int error;
    std::size_t played;
  } const cases[] = {{kEnd + 20, 0, 2},     {kEnd + 20, ENOSPC, 2}, {kEnd + 20, EDQUOT, 2},
                     {kEnd + 20, EFBIG, 2}, {kEnd + 20, EIO, 0},    {kEnd - 500, ENOSPC, 2},
                     {kEnd - 500, EIO, 2}};
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.capacity << " " << c.error);
    MemoryIO memory;
    FaultIO device(memory);
    device.Capacity(c.capacity, c.error);
    Recording full(&device);
    ASSERT_TRUE(full.Track(VideoMedia()).Open());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(full.Push(0, std::string(1000, 'x'), true));
    full.Close();
    EXPECT_FALSE(full.muxer->CheckIO());
    Playing p(&memory);
    EXPECT_TRUE(p.Open());
    EXPECT_EQ(p.Times().size(), c.played);
    EXPECT_EQ(p.failures, 0);
  }
}

// What follows the first packet that does not fit could not be decoded: it is refused, however
// small.
TEST_F(Muxer, TakesNothingAfterFourGiB) {
  struct : MemoryIO {  // keeps no bytes
    base::int64 Size() override { return size; }
    unsigned Write(void const*, unsigned n) override {
      position += n;
      size = std::max(size, position);
      return n;
    }
    bool Truncate(base::int64 n) override { return (size = n) >= 0; }
    base::int64 size = 0;
  } device;
  r.muxer->Set("io", static_cast<base::IO*>(&device));
  ASSERT_TRUE(Start());
  base::ConsoleCapture console;
  constexpr base::int64 kOverhead = 8 + 16 + 1;                // header, entry, room for padding
  base::int64 left = 0xFFFFFFFF - (224 + 8);                   // the head, an index without entries
  auto const fill = [&](base::int64 size, base::int64 keep) {  // false: refused
    auto const packet = MakePacket(r.media[0].get(), std::string(std::size_t(size), 'x'));
    bool taken = true;
    while (taken && left - size - kOverhead >= keep)
      if ((taken = r.ports[0]->Push(*packet))) left -= size + kOverhead - (size + 1) % 2;
    return taken;
  };
  for (base::int64 const size : {100 << 20, 1 << 20, 1000, 10}) EXPECT_TRUE(fill(size, 40)) << size;
  EXPECT_LT(left, 80);
  for (base::int64 const size : {left - kOverhead + 1, left - kOverhead, base::int64{1}})
    EXPECT_FALSE(r.Push(0, std::string(std::size_t(size), 'x'))) << size << " of " << left;
  EXPECT_THAT(r.messages, ElementsAre(HasSubstr("4 GiB")));
  std::string const line = "the file is full\n";
  EXPECT_NE(std::string::npos, console.Text().find(line));
  EXPECT_EQ(console.Text().find(line), console.Text().rfind(line)) << "a further line";
  EXPECT_TRUE(r.Close());
  EXPECT_EQ(0xFFFFFFFF - left, device.size) << "with its index";
}

}  // namespace
}  // namespace kestro::test
