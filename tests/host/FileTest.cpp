// Files of the system, and the stream over one.
#include "base/File.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

namespace kestro::base {
namespace {

namespace fs = std::filesystem;

class FileTest : public testing::Test {
 protected:
  FileTest() {
    std::string name = (fs::temp_directory_path() / "kestro-XXXXXX").string();
    folder = mkdtemp(name.data());
  }
  ~FileTest() override { fs::remove_all(folder); }

  std::string Path(char const* name) const { return (folder / name).string(); }
  void Put(char const* name, std::string const& text) { std::ofstream(folder / name) << text; }
  std::optional<std::string> Content(char const* name) {
    std::ifstream in(folder / name, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  fs::path folder;
};

TEST_F(FileTest, Modes) {
  struct {
    char const* mode;
    bool exists, opens;
    unsigned reads, writes;              // of 3 bytes each, in this order
    std::optional<std::string> content;  // afterwards
  } const table[] = {
      {"rb", true, true, 3, 0, "abcdef"},        {"rb", false, false, 0, 0, {}},
      {"r+b", true, true, 3, 3, "abcXYZ"},       {"r+b", false, false, 0, 0, {}},
      {"wb", true, true, 0, 3, "XYZ"},           {"wb", false, true, 0, 3, "XYZ"},
      {"rwbc", true, true, 0, 3, "XYZ"},         {"rwbc", false, true, 0, 3, "XYZ"},
      {"nonsense", true, false, 0, 0, "abcdef"}, {nullptr, true, false, 0, 0, "abcdef"},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(std::string(row.mode ? row.mode : "null") + (row.exists ? " old" : " new"));
    fs::remove(folder / "f");
    if (row.exists) Put("f", "abcdef");
    void* file = File::Open(Path("f").c_str(), row.mode);
    ASSERT_EQ(file != nullptr, row.opens);
    if (file != nullptr) {
      char bytes[3];
      EXPECT_EQ(File::Read(file, bytes, 3), row.reads);
      EXPECT_EQ(File::Write(file, "XYZ", 3), row.writes);
      EXPECT_EQ(File::Tell(file), row.reads + row.writes);
      EXPECT_TRUE(File::Flush(file) && File::Sync(file));
      EXPECT_TRUE(File::Close(file));
    }
    EXPECT_EQ(Content("f"), row.content);
  }
}

TEST_F(FileTest, NewFileLeavesTheOldOneToItsReaders) {
  Put("f", "old");
  void* before = File::Open(Path("f").c_str(), "r+b");
  void* after = File::Open(Path("f").c_str(), "rwbc");
  ASSERT_TRUE(before && after);
  EXPECT_EQ(File::Write(after, "longer", 6), 6u);
  char bytes[8] = {};
  EXPECT_EQ(File::Read(before, bytes, 8), 3u);
  EXPECT_STREQ(bytes, "old");
  File::Close(before);
  File::Close(after);
  EXPECT_EQ(Content("f"), "longer");
}

TEST_F(FileTest, DrivesAndTheTemporaryFolder) {
  auto const writes = [](char const* path) {
    FileIO io(path, "wb");
    return io.Opened() && io.Write("x", 1) == 1;
  };
  EXPECT_FALSE(writes("Q:/on-drive"));
  File::Mount('Q', folder.c_str());
  EXPECT_TRUE(writes("Q:/on-drive"));
  EXPECT_EQ(Content("on-drive"), "x");
  EXPECT_FALSE(writes("q:/on-drive"));
  EXPECT_TRUE(File::Delete("Q:/on-drive"));
  EXPECT_FALSE(Content("on-drive"));
  File::Mount('Q', nullptr);
  EXPECT_FALSE(writes("Q:/on-drive"));
  EXPECT_FALSE(File::Delete("Q:/on-drive"));
  File::TemporaryFolder(folder.c_str());
  EXPECT_TRUE(writes(":/scratch"));
  File::TemporaryFolder(nullptr);
  EXPECT_EQ(Content("scratch"), "x");
}

TEST_F(FileTest, WhatCannotBeOpenedSaysWhy) {
  for (char const* mode : {"rb", "r+b", "wb"}) {
    FileIO io(folder.c_str(), mode);
    EXPECT_FALSE(io.Opened());
    EXPECT_EQ(io.Error(), EISDIR) << mode;
  }
  EXPECT_EQ(File::Open(folder.c_str(), "rwbc"), nullptr);
  EXPECT_TRUE(fs::is_directory(folder));
  EXPECT_EQ(FileIO(Path("none").c_str(), "rb").Error(), ENOENT);
  EXPECT_EQ(FileIO(nullptr, "rb").Error(), ENOENT);
  FileIO closed(Path("none").c_str(), "rb");
  char byte;
  EXPECT_EQ(closed.Read(&byte, 1), IO::kFailed);
  EXPECT_EQ(closed.Write(&byte, 1), 0u);
  EXPECT_EQ(closed.Size(), -1);
  EXPECT_EQ(closed.Handle(), -1);
  EXPECT_FALSE(closed.Flush() || closed.Truncate(0));
  EXPECT_TRUE(closed.Close());
}

TEST_F(FileTest, OffsetsBeyond4GiB) {
  constexpr int64 kFar = 5ll << 30;
  FileIO io(Path("sparse").c_str(), "wb");
  ASSERT_TRUE(io.Seek(kFar, IO::kBegin));
  ASSERT_EQ(io.Write("far", 3), 3u);
  EXPECT_EQ(io.Tell(), kFar + 3);
  EXPECT_EQ(io.Size(), kFar + 3);
  char bytes[8];
  EXPECT_TRUE(io.Seek(-3, IO::kEnd));
  EXPECT_EQ(io.Read(bytes, 8), 3u);
  EXPECT_EQ(std::string(bytes, 3), "far");
  EXPECT_TRUE(io.Truncate(kFar + 1));
  EXPECT_EQ(io.Tell(), kFar + 3) << "the position stays";
  EXPECT_EQ(io.Read(bytes, 8), 0u);
  void* again = File::Open(Path("sparse").c_str(), "rb");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(File::Size(again), kFar + 1);
  EXPECT_TRUE(File::Seek(again, -1, File::kEnd));
  EXPECT_EQ(File::Read(again, bytes, 8), 1u);
  EXPECT_EQ(bytes[0], 'f');
  EXPECT_FALSE(File::Seek(again, -1, File::kBegin));
  EXPECT_EQ(File::Tell(again), kFar + 1);
  EXPECT_TRUE(File::Close(again));
}

TEST_F(FileTest, SeeksAndEnds) {
  Put("f", "0123456789");
  FileIO io(Path("f").c_str(), "rb");
  struct {
    int64 offset;
    int whence;
    int64 at;  // -1: refused
  } const table[] = {{4, 0, 4},   {3, 1, 7},          {-8, 1, -1},   {-1, 0, -1}, {-11, 2, -1},
                     {-10, 2, 0}, {INT64_MAX, 2, -1}, {100, 2, 110}, {0, 3, -1},  {10, 0, 10}};
  int64 at = 0;
  for (auto const& row : table) {
    EXPECT_EQ(io.Seek(row.offset, row.whence), row.at >= 0) << row.offset << " " << row.whence;
    if (row.at >= 0) at = row.at;
    EXPECT_EQ(io.Tell(), at) << "a refused seek moves nothing";
  }
  char byte;
  EXPECT_EQ(io.Read(&byte, 1), 0u) << "at the end";
  io.Seek(1000, IO::kBegin);
  EXPECT_EQ(io.Read(&byte, 1), 0u) << "beyond it";
  EXPECT_EQ(io.Error(), 0);
  EXPECT_EQ(io.Write("x", 1), 0u) << "opened for reading";
  EXPECT_EQ(io.Error(), EBADF);
  EXPECT_EQ(io.Tell(), 1000);
}

TEST(FileIO, FullDisk) {
  FileIO full("/dev/full", "r+b");
  ASSERT_TRUE(full.Opened());
  EXPECT_EQ(full.Write("abc", 3), 0u);
  EXPECT_EQ(full.Error(), ENOSPC);
  EXPECT_TRUE(full.Flush()) << "a device has nothing to make durable";
}

}  // namespace
}  // namespace kestro::base
