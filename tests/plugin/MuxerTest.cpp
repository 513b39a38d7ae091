// The muxer element: its states, properties and refusals.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Recording.h"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

unsigned U32(MemoryIO const& io, std::size_t at) {
  unsigned value = 0;
  for (int i = 0; i < 4; ++i)
    value |= unsigned(io.bytes[at + static_cast<std::size_t>(i)]) << (8 * i);
  return value;
}

int CountOf(std::string const& text, std::string const& part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++count;
  return count;
}

TEST(Muxer, PropertiesConvert) {
  Recording r(nullptr);
  auto& m = *r.muxer;
  base::ConsoleCapture console;
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(m.Set("listfile", std::string("7")));
  EXPECT_EQ(2, CountOf(console.Text(), "/idx1WithTmpFileThreshold:\tidx1WithTmpFile : 7\n\033[0m"));
  int n = 0;
  EXPECT_TRUE(m.Get("listfile", n));
  EXPECT_EQ(7, n);
  EXPECT_TRUE(m.Set("constFrameRate", "30000/1001"));
  base::Fraction rate;
  EXPECT_TRUE(m.Get("frameRateSave", rate));
  EXPECT_EQ(base::Fraction(30000, 1001), rate);
  EXPECT_TRUE(m.Set("diskName", 'K'));
  EXPECT_FALSE(m.Set("diskName", "KK"));
  EXPECT_TRUE(m.Set("mode", 1));
  long long size = 0;
  EXPECT_TRUE(m.Set("sizeGet", &size));
  EXPECT_EQ(32768, size);
  EXPECT_FALSE(m.Set("sizeGet", 5));
  EXPECT_FALSE(m.Set("vidtag", "a text"));
  EXPECT_FALSE(m.Set("vidtag", static_cast<base::Object*>(&m))) << "not a tag set";
  EXPECT_FALSE(m.Set("no such", 1));
  EXPECT_TRUE(m.Set("vidtag", static_cast<base::Object*>(nullptr)));
}

// What an application sees of the size while it records, and after.
TEST(Muxer, SizeIsFrozenByClose) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  ASSERT_TRUE(r.Push(0, KeyFrame("1234"), true));
  long long before = 0, after = 0;
  r.muxer->Set("sizeGet", &before);
  EXPECT_EQ(224 + static_cast<int>(StoredKeyFrame("1234").size()) + 16 + 32768, before);
  EXPECT_TRUE(r.Close());
  r.muxer->Set("sizeGet", &after);
  EXPECT_EQ(before, after);
}

TEST(Muxer, WrongCallsAreRefused) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  auto& m = *r.muxer;
  auto const packet = MakePacket(r.media[0].get(), KeyFrame("x"), true);
  EXPECT_TRUE(m.Close()) << "nothing was recorded";
  EXPECT_TRUE(m.Open());
  EXPECT_TRUE(m.Close());
  EXPECT_TRUE(io.bytes.empty()) << "no packet, no file";
  EXPECT_TRUE(m.Open());
  EXPECT_TRUE(m.ReceivePacket(*packet, nullptr));
  EXPECT_FALSE(m.Open()) << "the file is open";
  auto const other = VideoMedia();
  EXPECT_FALSE(m.ReceivePacket(*MakePacket(other.get(), KeyFrame("y"), true), nullptr));
  EXPECT_TRUE(m.Close());
  auto const size = io.bytes.size();
  EXPECT_TRUE(m.Close()) << "a second time";
  EXPECT_FALSE(m.ReceivePacket(*packet, nullptr)) << "after the end";
  EXPECT_EQ(size, io.bytes.size()) << "and the file is still whole";
  EXPECT_TRUE(m.Open());
  m.Set("pktflags", true);
  EXPECT_FALSE(m.ReceivePacket(*packet, nullptr)) << "the lazy open was skipped";
  EXPECT_TRUE(m.Close());
  EXPECT_TRUE(m.Check());
}

TEST(Muxer, FailedOpenIsTriedAgain) {
  std::string const folder = NewFolder();
  ASSERT_EQ(0, rmdir(folder.c_str()));
  Recording r(nullptr);
  r.muxer->Set("path", folder + "/a.avi");
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  base::ConsoleCapture console;
  EXPECT_FALSE(r.Push(0, KeyFrame("x"), true));
  EXPECT_FALSE(r.muxer->Check());
  EXPECT_FALSE(r.muxer->CheckIO());
  EXPECT_THAT(r.messages, ElementsAre("error: " + folder + "/a.avi: No such file or directory"));
  EXPECT_THAT(console.Text(), HasSubstr("/OpenFileConfig:\t!OpenConfig(list)\n"));
  EXPECT_THAT(console.Text(), HasSubstr("/ReceivePacket:\t!OpenFileConfig()\n"));
  ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
  EXPECT_TRUE(r.Push(0, KeyFrame("x"), true));
  EXPECT_TRUE(r.muxer->Check()) << "a successful open clears the error";
  EXPECT_TRUE(r.Close());
  EXPECT_EQ(0, unlink((folder + "/a.avi").c_str()) + rmdir(folder.c_str()));
}

TEST(Muxer, NoMediumNoFile) {
  MemoryIO io;
  Recording r(&io);
  ASSERT_TRUE(r.Open());
  auto const media = VideoMedia();
  auto const packet = MakePacket(media.get(), KeyFrame("x"), true);
  {
    base::ConsoleCapture console;
    EXPECT_FALSE(r.muxer->ReceivePacket(*packet, nullptr));
    EXPECT_THAT(console.Text(), HasSubstr("/StreamConfig:\tlist.empty()\n"));
    EXPECT_THAT(console.Text(), HasSubstr("/Open:\t!StreamConfig(io, list)\n"));
  }
  r.Track(VideoMedia("vp9"));
  EXPECT_FALSE(r.muxer->ReceivePacket(*packet, nullptr));
  r.muxer->Set("vidtag", static_cast<base::Object*>(nullptr));
  r.Track(VideoMedia());
  EXPECT_FALSE(r.Push(1, KeyFrame("x"), true)) << "without a tag set there is no tree";
  EXPECT_TRUE(io.bytes.empty());
  EXPECT_TRUE(r.Close());
}

// A medium that cannot be recorded is left out, and does not stop the others.
TEST(Muxer, UnknownMediumIsSkipped) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia("vp9")).Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  EXPECT_FALSE(r.Push(0, "x"));
  EXPECT_TRUE(r.Push(1, KeyFrame("x"), true));
  EXPECT_TRUE(r.Close());
  EXPECT_EQ(1u, U32(io, 0x38)) << "streams";
}

// A muxer that reveals end-of-stream counting, which no property turns on by itself.
TEST(Muxer, EosNeedsAMask) {
  MemoryIO io;
  Recording r(&io);
  r.muxer->Set("mode", 1);
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  auto const packet = MakePacket(r.media[0].get(), KeyFrame("x"), true);
  packet->Flags(0xFFFFFFFF);
  EXPECT_TRUE(r.ports[0]->Push(*packet));
  EXPECT_TRUE(r.Close());
  EXPECT_THAT(r.messages, IsEmpty());
}

TEST(Muxer, MissingSpillFolderIsAWarning) {
  MemoryIO io;
  Recording r(&io);
  r.muxer->Set("listfile", 0);
  r.muxer->Set("diskName", 'Z');
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  for (int i = 0; i < 10000; ++i) ASSERT_TRUE(r.Push(0, Frame("f")));
  EXPECT_TRUE(r.Close());
  EXPECT_THAT(r.messages, ElementsAre(StartsWith("warning: ")));
  EXPECT_TRUE(r.muxer->Check());
  EXPECT_EQ(10000u, U32(io, 0x30)) << "frames";
  EXPECT_EQ(160000u, U32(io, io.bytes.size() - 160000 - 4)) << "index size";
}

// Counts what it gets and keeps the rest of the world out of it.
class NullIO : public MemoryIO {
 public:
  base::int64 Size() override { return size; }
  unsigned Write(void const*, unsigned n) override {
    position += n;
    size = std::max(size, position);
    return n;
  }
  bool Truncate(base::int64 n) override {
    size = n;
    return true;
  }
  base::int64 size = 0;
};

// No file grows past what its 32-bit fields can hold; it is closed as if it had ended there.
TEST(Muxer, StopsBeforeFourGiB) {
  NullIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  std::string const big = KeyFrame(std::string(100 << 20, 'x'));
  auto const packet = MakePacket(r.media[0].get(), big, true);
  int taken = 0;
  while (taken < 100 && r.ports[0]->Push(*packet)) ++taken;
  EXPECT_EQ(40, taken);
  EXPECT_TRUE(r.Push(0, Frame("small"))) << "what fits is taken still";
  EXPECT_FALSE(r.ports[0]->Push(*packet));
  EXPECT_THAT(r.messages, ElementsAre(HasSubstr("4 GiB")));
  EXPECT_TRUE(r.Close());
  EXPECT_LE(io.size, 0xFFFFFFFF);
  EXPECT_GT(io.size, 0xF0000000);
}

unsigned notified[2];
void Notify(unsigned id, void*, unsigned size) { notified[id] += size; }

TEST(Muxer, NotifiesOfWhatPacketsWrite) {
  MemoryIO io;
  Recording r(&io);
  EXPECT_TRUE(r.muxer->Set("notify", &Notify));
  EXPECT_TRUE(r.muxer->Set("notifyid", 1));
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  ASSERT_TRUE(r.Push(0, KeyFrame("1234"), true));
  EXPECT_EQ(8 + StoredKeyFrame("1234").size() + StoredKeyFrame("1234").size() % 2, notified[1]);
  EXPECT_EQ(0u, notified[0]);
}

// Media outlive their ports' interest in them for as long as the file is open.
TEST(Muxer, HoldsItsMedia) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  ASSERT_TRUE(r.Push(0, KeyFrame("x"), true));
  r.ports[0]->Offer(nullptr);
  r.media.clear();
  EXPECT_TRUE(r.Close());
  EXPECT_EQ(320u, U32(io, 0x40)) << "width";
}

}  // namespace
}  // namespace kestro::test
