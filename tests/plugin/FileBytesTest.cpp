// The bytes of whole files.
#include <gmock/gmock.h>
#include <unistd.h>

#include "base/File.h"
#include "support/FileLayout.h"

namespace kestro::test {
namespace {

std::vector<Chunk> RecordTo(Recording& r, Shape const& s, int frames) {
  r.muxer->Set("constFrameRate", s.rate);
  std::vector<Chunk> chunks;
  EXPECT_TRUE(r.Open());
  for (int i = 0; i < frames; ++i) {
    std::string const payload(static_cast<std::size_t>(i + 1), static_cast<char>('a' + i % 26));
    bool const key = i % 3 == 0;
    EXPECT_TRUE(r.Push(0, key ? KeyFrame(payload) : Frame(payload), key));
    chunks.push_back({"00dc", key ? StoredKeyFrame(payload) : StoredFrame(payload), key});
    if (!s.sound) continue;
    std::string const sound(static_cast<std::size_t>(8 + i % 5), 's');
    EXPECT_TRUE(r.Push(1, sound, true));
    chunks.push_back({"01wb", sound, false});
  }
  EXPECT_TRUE(r.Close());
  EXPECT_TRUE(r.muxer->Check());
  return chunks;
}

TEST(FileBytes, EveryLayoutIsExact) {
  std::vector<std::pair<char const*, Shape>> cases;
  auto const add = [&](char const* name) -> Shape& {
    return cases.emplace_back(name, Shape()).second;
  };
  add("video alone");
  add("with sound").sound = true;
  add("29.97 is stored as 29, the frame time is exact").rate = {30000, 1001};
  add("two fields a frame").interlace = true;
  add("strd alone").strd = "12345678";
  add("JUNK without INFO").junk = "jjjjjj";
  add("index first").indexFirst = true;
  Shape& all = add("everything, of odd sizes");
  all.sound = true;
  all.strd = "strd!";
  all.strn = "a name.";
  all.isft = "software 1.0!";
  all.junk = "junk1";
  Shape const everything = all;
  Shape& first = add("index first with everything");
  first = everything;
  first.indexFirst = true;
  for (auto const& [name, shape] : cases) {
    SCOPED_TRACE(name);
    MemoryIO io;
    Tags tags(shape);
    Recording r(&io);
    EXPECT_TRUE(r.muxer->Set("vidtag", tags.object.get()));
    r.Track(VideoMedia("h264", 320, 180, shape.rate, shape.interlace));
    if (shape.sound) r.Track(SoundMedia());
    auto const chunks = RecordTo(r, shape, 7);
    EXPECT_EQ("", Difference(Expected(shape, chunks), io.bytes));
    EXPECT_THAT(r.messages, testing::IsEmpty());
  }
}

// One element, file after file, each with tags of its own.
TEST(FileBytes, NothingOfAFileIsLeftInTheNext) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  Shape first, second, third;
  first.strd = "12345678";
  first.isft = "one!";
  first.junk = "filler";
  second.indexFirst = true;
  for (Shape const& shape : {first, second, third, first}) {
    Tags tags(shape);
    r.muxer->Set("vidtag", tags.object.get());
    auto const chunks = RecordTo(r, shape, 4);
    EXPECT_EQ("", Difference(Expected(shape, chunks), io.bytes));
  }
}

// Two tracks share a list that is spilled by both; the index is in file order all the same, and the
// temporary files are gone.
TEST(FileBytes, SpilledIndexIsTheSame) {
  std::string const folder = NewFolder();
  base::File::Mount('S', folder.c_str());
  Shape shape;
  shape.sound = true;
  MemoryIO io;
  Recording r(&io);
  r.muxer->Set("listfile", 1);
  r.muxer->Set("diskName", "S");
  r.Track(VideoMedia()).Track(SoundMedia());
  auto const chunks = RecordTo(r, shape, 6000);
  EXPECT_EQ("", Difference(Expected(shape, chunks), io.bytes));
  EXPECT_EQ(0, rmdir(folder.c_str())) << "a spill file is left";
  EXPECT_THAT(r.messages, testing::IsEmpty());
  base::File::Mount('S', nullptr);
}

// An empty packet is a chunk of size 0 that is counted and not indexed.
TEST(FileBytes, EmptyPacketHasNoEntry) {
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia());
  ASSERT_TRUE(r.Open());
  EXPECT_TRUE(r.Push(0, KeyFrame("k"), true));
  EXPECT_TRUE(r.Push(0, ""));
  EXPECT_TRUE(r.Push(0, Frame("f")));
  EXPECT_TRUE(r.Close());
  std::string const file(io.bytes.begin(), io.bytes.end());
  EXPECT_NE(std::string::npos, file.find(std::string("00dc\0\0\0\0"
                                                     "00dc\x06",
                                                     13)));
  EXPECT_EQ(3, file[0x30]) << "total frames";
  EXPECT_EQ(2 * 16, file[file.rfind("idx1") + 4]) << "index size";
}

}  // namespace
}  // namespace kestro::test
