// Files of the system, and the stream over one.
#include "base/File.h"

#include <gtest/gtest.h>
#include <linux/magic.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "support/MemoryIO.h"
#include "support/SystemFault.h"

namespace kestro::base {
namespace {

namespace fs = std::filesystem;

class FileTest : public testing::Test {
 protected:
  ~FileTest() override { fs::remove_all(folder); }

  void Put(std::string const& text) { std::ofstream(path) << text; }
  std::string Content(char const* name = "f") {
    return fs::exists(folder / name) ? test::FileText(folder / name) : "none";
  }

  fs::path const folder = test::NewFolder(), path = folder / "f";
};

// Or not at all, and each failure is reported. Whoever reads a file keeps it when a new one gets
// its name.
TEST_F(FileTest, FilesAreReplacedWhole) {
  using test::Call;
  std::pair<Call, std::string> const cases[] = {
      {Call::kOpen, "/n"},   {Call::kWrite, "/n"},  {Call::kSync, "/n"},  {Call::kClose, "/n"},
      {Call::kRename, "/f"}, {Call::kOpen, folder}, {Call::kSync, folder}};
  std::string const next = folder / "n";
  int const descriptors = test::Descriptors();
  for (auto const& [call, file] : cases)
    for (int nth = 1, failures = 1; failures > 0; ++nth) {
      Put("old");
      std::ofstream(next) << "stale";
      FileIO stale(next.c_str(), "rb");
      test::SystemFault const fault(call, file, nth);
      {
        FileIO io(next.c_str(), "rwbc");
        bool done = io.Write("longer", 6) == 6 && io.Flush();
        done = io.Close() && done && File::Rename(next.c_str(), path.c_str());
        failures = fault.Failures();
        EXPECT_EQ(done, failures == 0);
        EXPECT_TRUE(Content() == "longer" || (!done && Content() == "old"));
      }
      char bytes[8] = {};
      EXPECT_EQ(stale.Read(bytes, 8), 5);
      EXPECT_EQ(bytes, std::string("stale"));
      EXPECT_TRUE(stale.Close());
      EXPECT_EQ(descriptors, test::Descriptors());
    }
}

// Which is asked once for each file. FAT needs both calls, and neither counts once the system has
// made it read-only.
TEST_F(FileTest, FlushUsesTheBarrierOfTheFileSystem) {
  struct {
    long type;
    bool readOnly;
    std::string first, second;  // of a new file, whose name must be durable too
    bool done;
  } const table[] = {
      {EXT4_SUPER_MAGIC, false, "?d?f", "d", true},
      {EXFAT_SUPER_MAGIC, false, "?d?f", "d", true},
      {MSDOS_SUPER_MAGIC, false, "?a?d", "a?d", true},
      {MSDOS_SUPER_MAGIC, true, "?a?", "a?", false},
      {-1, false, "?a?d", "a?d", true},  // unknown: as on FAT
  };
  for (auto const& row : table) {
    SCOPED_TRACE(testing::Message() << std::hex << row.type << " " << row.readOnly);
    test::FileSystem on(row.type, row.readOnly);
    FileIO io(path.c_str(), "rwbc");
    EXPECT_EQ(io.Flush(), row.done);
    EXPECT_EQ(on.Calls(), row.first);
    EXPECT_EQ(io.Flush(), row.done);
    EXPECT_EQ(on.Calls(), row.second);
    EXPECT_EQ(io.Error(), row.done ? 0 : EROFS);
    EXPECT_TRUE(io.FlushData());
    EXPECT_EQ(on.Calls(), "d");
    for (auto call : {test::Call::kSyncAll, test::Call::kSync}) {
      SCOPED_TRACE(call == test::Call::kSync ? "fdatasync fails" : "syncfs fails");
      bool const meets = call == test::Call::kSync || row.second[0] == 'a';
      {
        test::SystemFault const fault(call, "/f", 1);
        EXPECT_EQ(io.Flush(), row.done && !meets);
      }
      test::SystemFault const again(call, "/f", 1, true, EINTR);
      EXPECT_EQ(io.Flush(), row.done);
    }
    on.Calls();
    static_cast<void>(File::Rename(path.c_str(), (folder / "g").c_str()));
    EXPECT_EQ(on.Calls(), row.second[0] == 'a' ? row.done ? "?a?f" : "?a?" : "?f");
  }
}

TEST_F(FileTest, Modes) {
  int const descriptors = test::Descriptors();
  struct {
    char const* mode;
    bool exists, opens;
    unsigned reads, writes;  // of 3 bytes each, in this order
    char const* content;     // afterwards
  } const table[] = {
      {"rb", true, true, 3, 0, "abcdef"},        {"rb", false, false, 0, 0, "none"},
      {"r+b", true, true, 3, 3, "abcXYZ"},       {"r+b", false, false, 0, 0, "none"},
      {"wb", true, true, 0, 3, "XYZ"},           {"wb", false, true, 0, 3, "XYZ"},
      {"rwbc", true, true, 0, 3, "XYZ"},         {"rwbc", false, true, 0, 3, "XYZ"},
      {"nonsense", true, false, 0, 0, "abcdef"}, {nullptr, true, false, 0, 0, "abcdef"},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(std::string(row.mode ? row.mode : "null") + (row.exists ? " old" : " new"));
    fs::remove(path);
    if (row.exists) Put("abcdef");
    void* file = File::Open(path.c_str(), row.mode);
    ASSERT_EQ(file != nullptr, row.opens);
    if (file != nullptr) {
      char bytes[3];
      EXPECT_EQ(File::Read(file, bytes, 3), row.reads);
      EXPECT_EQ(File::Write(file, "XYZ", 3), row.writes);
      EXPECT_TRUE(File::Sync(file));
      EXPECT_TRUE(File::Close(file));
    }
    EXPECT_EQ(Content(), row.content);
    EXPECT_EQ(File::Open(folder.c_str(), row.mode), nullptr) << "a folder";
    EXPECT_EQ(test::Descriptors(), descriptors);
  }
}

TEST_F(FileTest, DrivesAndTheTemporaryFolder) {
  auto const writes = [](char const* name) { return FileIO(name, "wb").Write("x", 1) == 1; };
  File::Mount('Q', folder.c_str());
  EXPECT_TRUE(writes("Q:/on-drive"));
  EXPECT_FALSE(writes("q:/on-drive"));
  EXPECT_EQ(Content("on-drive"), "x");
  EXPECT_TRUE(File::Delete("Q:/on-drive"));
  EXPECT_EQ(Content("on-drive"), "none");
  File::Mount('Q', nullptr);
  EXPECT_FALSE(writes("Q:/on-drive"));
  File::TemporaryFolder(folder.c_str());
  EXPECT_TRUE(writes(":/scratch"));
  File::TemporaryFolder(nullptr);
  EXPECT_EQ(Content("scratch"), "x");
}

TEST_F(FileTest, OffsetsBeyond4GiB) {
  constexpr int64 kFar = 5ll << 30;
  FileIO io(path.c_str(), "wb");
  ASSERT_TRUE(io.Seek(kFar, IO::kBegin));
  ASSERT_EQ(io.Write("far", 3), 3);
  char bytes[8] = {};
  EXPECT_TRUE(io.Seek(-3, IO::kEnd));
  EXPECT_EQ(io.Read(bytes, 8), 3);
  EXPECT_STREQ(bytes, "far");
  EXPECT_TRUE(io.Truncate(kFar + 1)) << "the position stays";
  EXPECT_EQ(io.Tell(), kFar + 3) << "the position stays";
  void* again = File::Open(path.c_str(), "rb");
  EXPECT_TRUE(File::Seek(again, -1, File::kEnd));
  EXPECT_EQ(File::Read(again, bytes, 8), 1);
  EXPECT_EQ(File::Tell(again), kFar + 1);
  EXPECT_TRUE(File::Close(again));
}

TEST_F(FileTest, EndsAndErrors) {
  Put("0123456789");
  FileIO io(path.c_str(), "rb");
  EXPECT_TRUE(io.Seek(100, IO::kEnd));
  EXPECT_FALSE(io.Seek(INT64_MAX, IO::kEnd));
  EXPECT_FALSE(io.Seek(-11, IO::kEnd));
  EXPECT_FALSE(io.Seek(0, 3));
  EXPECT_EQ(io.Tell(), 110) << "a refused seek moves nothing";
  char byte;
  EXPECT_EQ(io.Read(&byte, 1), 0) << "beyond the end";
  EXPECT_EQ(io.Error(), 0) << "beyond the end";
  EXPECT_EQ(io.Write("x", 1), 0) << "opened for reading";
  EXPECT_EQ(io.Error(), EBADF) << "opened for reading";
  FileIO full("/dev/full", "r+b");
  EXPECT_EQ(full.Write("abc", 3), 0);
  EXPECT_EQ(full.Error(), ENOSPC);
  EXPECT_TRUE(full.Flush()) << "a device has nothing to make durable";
}

}  // namespace
}  // namespace kestro::base
