// The spill file of the index.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

#include "base/File.h"
#include "common/IListFile.h"
#include "support/MemoryIO.h"

namespace kestro::test {
namespace {

using namespace plugin::avi;

class Spill : public testing::Test {
 protected:
  void SetUp() override {
    folder = NewFolder();
    base::File::Mount('I', folder.c_str());
    list.reserve(64);
  }
  void TearDown() override {
    base::File::Mount('I', nullptr);
    std::filesystem::remove_all(folder);
  }

  // Adds as a stream does: spills before the list would grow.
  void Add(IListFile& file, unsigned n) {
    if (file.ListIsFull()) spills += file.WriteTmpFile();
    list.emplace_back().offset = n;
  }
  void ExpectEntries(unsigned count) {
    ASSERT_EQ(count, list.size());
    for (unsigned n = 0; n < count; ++n) ASSERT_EQ(n, list[n].offset);
  }
  std::string folder;
  std::vector<ChunkParam> list;
  int spills = 0;
};

TEST_F(Spill, BringsEveryRecordBackInOrder) {
  testing::internal::CaptureStdout();
  IListFile file(&list, "I:/h264.0x1", 4096);
  EXPECT_EQ("I:/h264.0x1.kestro maxsize 98304\n", testing::internal::GetCapturedStdout());
  for (unsigned n = 0; n < 62; ++n) Add(file, n);
  EXPECT_FALSE(file.ReadTmpFile()) << "nothing was spilled";
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  for (unsigned n = 62; n < 1000; ++n) Add(file, n);
  EXPECT_EQ(15, spills) << "one slot before the list is full";
  EXPECT_EQ(64u, list.capacity()) << "memory stays flat";
  EXPECT_TRUE(std::filesystem::exists(folder + "/h264.0x1.kestro"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(file.ReadTmpFile());
    ExpectEntries(1000);
  }
  // Recording goes on, and spills again.
  for (unsigned n = 1000; n < 3000; ++n) Add(file, n);
  EXPECT_TRUE(file.ReadTmpFile());
  ExpectEntries(3000);
}

TEST_F(Spill, FilesThatShareAListLoseNothing) {
  IListFile a(&list, "I:/a", 4096), b(&list, "I:/b", 4096);
  for (unsigned n = 0; n < 1000; ++n) Add(n / 100 % 2 != 0 ? a : b, n);
  EXPECT_TRUE(a.ReadTmpFile());
  EXPECT_TRUE(b.ReadTmpFile());
  std::sort(list.begin(), list.end(), [](auto& x, auto& y) { return x.offset < y.offset; });
  ExpectEntries(1000);
}

TEST_F(Spill, NoFolderKeepsTheRecordsInMemory) {
  base::ConsoleCapture console;
  IListFile file(&list, "Q:/nowhere", 4096);
  for (unsigned n = 0; n < 200; ++n) Add(file, n);
  EXPECT_EQ(0, spills);
  ExpectEntries(200);
  EXPECT_EQ(0u,
            console.Text().find("\033[31mplugin/avi/common/IListFile/31/WriteTmpFile:\t\n\033[0m"));
  EXPECT_FALSE(file.ReadTmpFile());
  EXPECT_FALSE(file.Lost());
}

}  // namespace
}  // namespace kestro::test
