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
    if (i == 2) {  // an empty packet is a chunk that is counted, and not indexed
      EXPECT_TRUE(r.Push(0, ""));
      chunks.push_back({"00dc", "", false});
    }
    if (!s.sound) continue;
    std::string const sound(static_cast<std::size_t>(8 + i % 5), 's');
    EXPECT_TRUE(r.Push(1, sound, true));
    chunks.push_back({"01wb", sound, false});
  }
  EXPECT_TRUE(r.Close());
  EXPECT_TRUE(r.muxer->Check());
  return chunks;
}

// One element records all files: nothing of one is left in the next.
TEST(FileBytes, EveryLayoutIsExact) {
  Shape sound, ntsc, interlace, strd, junk, first, all;
  all.sound = sound.sound = true;
  ntsc.rate = {30000, 1001};  // stored as 29, but for the frame time
  interlace.interlace = true;
  strd.strd = "12345678";
  junk.junk = "jjjjjj";
  first.indexFirst = true;
  all.strd = "strd!";
  all.strn = "a name.";
  all.isft = "software 1.0!";
  all.junk = "junk1";
  Shape everything = all;
  everything.indexFirst = true;
  MemoryIO io;
  Recording r(&io);
  r.Track(VideoMedia()).Track(SoundMedia());
  int number = 0;
  for (Shape const& s :
       {Shape(), sound, ntsc, interlace, strd, junk, first, all, strd, everything, Shape()}) {
    SCOPED_TRACE(number++);
    Tags tags(s);
    EXPECT_TRUE(r.muxer->Set("vidtag", tags.object.get()));
    r.media[0] = VideoMedia("h264", 320, 180, s.rate, s.interlace);
    r.ports[0]->Offer(r.media[0].get());
    r.ports[1]->Offer(s.sound ? r.media[1].get() : nullptr);
    auto const chunks = RecordTo(r, s, 7);
    EXPECT_EQ("", Difference(Expected(s, chunks), io.bytes));
    EXPECT_THAT(r.messages, testing::IsEmpty());
  }
}

// Two tracks share a list that both spill; the index is in file order all the same.
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

}  // namespace
}  // namespace kestro::test
