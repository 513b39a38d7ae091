// The bytes of whole files, and the file that a long index is spilled to.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "base/File.h"
#include "common/IListFile.h"
#include "support/FileLayout.h"
#include "support/SystemFault.h"

namespace kestro::test {
namespace {

using plugin::avi::ChunkParam;
using plugin::avi::IListFile;

// Records frames of different sizes. The first one brings the headers into the file.
std::vector<Chunk> RecordTo(Recording& r, MemoryIO& io, Shape const& s, int frames) {
  r.muxer->Set("constFrameRate", s.rate);
  std::vector<Chunk> chunks;
  EXPECT_TRUE(r.Open());
  for (int i = 0; i < frames; ++i) {
    std::string const payload(static_cast<std::size_t>(i + 1), static_cast<char>('a' + i % 26));
    bool const key = i % 3 == 0;
    EXPECT_TRUE(r.Push(0, key ? KeyFrame(payload) : Frame(payload), key));
    chunks.push_back({"00dc", key ? StoredKeyFrame(payload) : StoredFrame(payload), key});
    if (i == 0 && s.indexFirst) {
      EXPECT_EQ("", Difference(Expected(s, {}), io.bytes));
    }
    if (i == 2) {  // an empty packet is counted, but has no index entry
      EXPECT_TRUE(r.Push(0, ""));
      chunks.push_back({"00dc", "", false});
    }
    if (!s.audio || i == 0) continue;
    std::string const audio(static_cast<std::size_t>(8 + i % 5), 's');
    EXPECT_TRUE(r.Push(1, audio, true));
    chunks.push_back({"01wb", audio, false});
  }
  EXPECT_TRUE(r.Close());
  EXPECT_TRUE(r.muxer->Check());
  return chunks;
}

// A device that notes whether an index is written while there are spill files: on a full card, it
// needs their space.
struct Card : MemoryIO {
  unsigned Write(void const* data, unsigned size) override {
    bool const spills = !std::filesystem::is_empty(folder);
    std::string_view const text(static_cast<char const*>(data), size);
    spilled += spills;
    early += spills && text.find("idx1") != text.npos;
    return MemoryIO::Write(data, size);
  }
  std::string const folder = NewFolder();
  int spilled = 0, early = 0;
};

// One element records all files: nothing of one may be left in the next.
TEST(FileBytes, EveryLayoutIsExact) {
  Shape plain, audio, ntsc, interlace, strd, junk, first, all;
  all.audio = audio.audio = true;
  ntsc.rate = {30000, 1001};  // stored as 29, apart from the frame time
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
  Card io;
  base::File::Mount('S', io.folder.c_str());
  Recording r(&io);
  r.muxer->Set("diskName", "S");
  r.Track(VideoMedia()).Track(AudioMedia());
  int number = 0;
  auto const record = [&](Shape const& s, int frames, int spill = -1) {
    SCOPED_TRACE(number++);
    Tags tags(s);
    EXPECT_TRUE(r.muxer->Set("vidtag", tags.object.get()));
    EXPECT_TRUE(r.muxer->Set("listfile", spill));
    r.media[0] = VideoMedia("h264", 320, 180, s.rate, s.interlace);
    EXPECT_TRUE(r.ports[0]->Offer(r.media[0].get()));
    EXPECT_TRUE(r.ports[1]->Offer(s.audio ? r.media[1].get() : nullptr));
    auto const chunks = RecordTo(r, io, s, frames);
    EXPECT_EQ("", Difference(Expected(s, chunks), io.bytes));
  };
  for (Shape const& s : {plain, audio, ntsc, interlace, strd, junk, first, all, strd, everything})
    record(s, 7);
  record(audio, 6000, 1);  // two tracks spill the list that they share
  record(first, 2048);     // as many as it has room for
  EXPECT_THAT(r.messages, testing::IsEmpty());
  record(first, 2049);
  EXPECT_THAT(r.messages, testing::ElementsAre(testing::HasSubstr("the index is full")));
  record(plain, 7);
  EXPECT_GT(io.spilled, 0);
  EXPECT_EQ(io.early, 0) << "an index was written before the spill file was deleted";
  EXPECT_EQ(0, rmdir(io.folder.c_str())) << "a spill file was left";
  base::File::Mount('S', nullptr);
}

// A list grows on after it was read back. The other one cannot be spilled.
TEST(FileBytes, SpilledEntriesAreReadBack) {
  std::string const folder = NewFolder();
  base::File::Mount('I', folder.c_str());
  std::vector<ChunkParam> list;
  list.reserve(64);
  testing::internal::CaptureStdout();
  std::optional<IListFile> file(std::in_place, &list, "I:/h264.0x1", 4096);
  IListFile nowhere(&list, "Q:/n", 4096);
  EXPECT_EQ("I:/h264.0x1.kestro maxsize 98304\nQ:/n.kestro maxsize 98304\n",
            testing::internal::GetCapturedStdout());
  unsigned added = 0;
  for (unsigned const count : {62u, 1000u, 3000u}) {
    for (; added < count; list.emplace_back().offset = added++) {
      EXPECT_TRUE(added > 63 || file->ListIsFull() == (added == 63)) << "one slot before";
      EXPECT_TRUE(!file->ListIsFull() || file->WriteTmpFile());
    }
    std::optional<SystemFault> full;  // the last entries stay in memory
    if (count == 3000) full.emplace(Call::kWrite, ".kestro", 1, true, ENOSPC);
    EXPECT_EQ(count > 63, file->ReadTmpFile()) << count;
    EXPECT_EQ(count == 3000, full && full->Failures() > 0);
    ASSERT_EQ(count, list.size());
    for (unsigned n = 0; n < count; ++n) ASSERT_EQ(n, list[n].offset);
  }
  base::ConsoleCapture console;
  EXPECT_FALSE(nowhere.WriteTmpFile());
  EXPECT_FALSE(nowhere.ReadTmpFile());
  EXPECT_FALSE(nowhere.Lost());
  EXPECT_EQ(3000u, list.size());
  EXPECT_EQ("\033[31mplugin/avi/common/IListFile/31/WriteTmpFile:\t\n\033[0m", console.Text());
  file.reset();
  EXPECT_EQ(0, rmdir(folder.c_str())) << "the file was left";
  base::File::Mount('I', nullptr);
}

}  // namespace
}  // namespace kestro::test
