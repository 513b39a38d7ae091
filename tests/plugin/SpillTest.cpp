// The spill file of the index. Whole files show what becomes of two tracks, and of failing disks.
#include <gmock/gmock.h>

#include <filesystem>

#include "base/File.h"
#include "common/IListFile.h"
#include "support/MemoryIO.h"

namespace kestro::test {
namespace {

using namespace plugin::avi;

TEST(Spill, BringsEveryRecordBackInOrder) {
  std::string const folder = NewFolder();
  base::File::Mount('I', folder.c_str());
  std::vector<ChunkParam> list;
  list.reserve(64);
  int spills = 0;
  unsigned added = 0;
  // Adds as a stream does: spills before the list would grow.
  auto const add = [&](IListFile& file, unsigned end) {
    while (added < end) {
      if (file.ListIsFull()) spills += file.WriteTmpFile();
      list.emplace_back().offset = added++;
    }
  };
  auto const expect = [&](std::size_t count) {
    ASSERT_EQ(count, list.size());
    for (std::size_t n = 0; n < count; ++n) ASSERT_EQ(n, list[n].offset);
  };
  {
    testing::internal::CaptureStdout();
    IListFile file(&list, "I:/h264.0x1", 4096);
    EXPECT_EQ("I:/h264.0x1.kestro maxsize 98304\n", testing::internal::GetCapturedStdout());
    add(file, 62);
    EXPECT_FALSE(file.ReadTmpFile()) << "nothing was spilled";
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    add(file, 1000);
    EXPECT_EQ(15, spills) << "one slot before the list is full";
    EXPECT_EQ(64u, list.capacity()) << "memory stays flat";
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(file.ReadTmpFile());
      expect(1000);
    }
    // Recording goes on, and spills again.
    add(file, 3000);
    EXPECT_TRUE(file.ReadTmpFile());
    expect(3000);
  }
  EXPECT_TRUE(std::filesystem::remove(folder)) << "the file is gone";
  base::File::Mount('I', nullptr);
  base::ConsoleCapture console;
  IListFile nowhere(&list, "I:/nowhere", 4096);
  EXPECT_FALSE(nowhere.WriteTmpFile() || nowhere.ReadTmpFile() || nowhere.Lost());
  expect(3000);
  EXPECT_EQ("\033[31mplugin/avi/common/IListFile/31/WriteTmpFile:\t\n\033[0m", console.Text());
}

}  // namespace
}  // namespace kestro::test
