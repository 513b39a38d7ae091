// Side files: two slots that images are stored in by turns.
#include "avi/SlotFile.h"

#include <linux/magic.h>

#include "Command.h"
#include "support/FaultIO.h"
#include "support/SystemFault.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

// The images of one recording, which outgrow their slots twice.
class SlotTest : public Command {
 protected:
  void SetUp() override {
    Command::SetUp();
    _path = At("a.sync");
  }
  // Each size has its own image.
  static std::vector<unsigned char> ImageOf(int size) {
    std::vector<unsigned char> image(static_cast<std::size_t>(size));
    for (int i = 0; i < size; ++i) image[static_cast<std::size_t>(i)] = (i + size) & 0xFF;
    return image;
  }
  static bool Store(avi::SlotFile& slots, int size) {
    return slots.Store(ImageOf(size).data(), static_cast<unsigned>(size));
  }
  // The size of the newest image, -1 for none, and how many files there are.
  int Newest(std::size_t* files = nullptr) const {
    avi::SlotFile::Image newest, image;
    std::size_t found = 0;
    for (std::string const& path : avi::SlotFile::Names(_path)) {
      found += fs::exists(path);
      test::MemoryIO file(FileText(path));
      if (avi::SlotFile::Read(file, image) && image.generation > newest.generation) newest = image;
    }
    if (files != nullptr) *files = found;
    int const size = static_cast<int>(newest.bytes.size());
    EXPECT_TRUE(newest.bytes == ImageOf(size)) << size;
    return newest.generation == 0 ? -1 : size;
  }

  static constexpr int kSlot = 4096;
  static constexpr int kSizes[] = {100, 101, 0, kSlot - 16, kSlot - 15, 5000, 9000, 9001};
  std::string _path;
};

// Only a new file needs the barrier of the whole file system; its size never changes.
TEST_F(SlotTest, ImagesTakeTurns) {
  Write("a.sync2", "of an older recording");
  test::FileSystem fat(MSDOS_SUPER_MAGIC);
  avi::SlotFile slots(_path, kSlot);
  EXPECT_TRUE(slots.Remove()) << "nothing yet";
  std::uintmax_t size = 0;
  for (int bytes : kSizes) {
    SCOPED_TRACE(bytes);
    EXPECT_TRUE(Store(slots, bytes)) << slots.Error();
    std::size_t files = 0;
    EXPECT_EQ(Newest(&files), bytes);
    EXPECT_EQ(files, 1u);
    bool const made = std::exchange(size, fs::file_size(slots.Path())) != size;
    EXPECT_EQ(made, bytes == 100 || bytes == kSlot - 15 || bytes == 9000);
    EXPECT_EQ(fat.Calls(), made ? "?a?d" : "d");
  }
  EXPECT_EQ(size, 4096 + 2 * 16384u);
  EXPECT_TRUE(slots.Remove());
  EXPECT_FALSE(fs::exists(slots.Path()));
}

// Images whose head changes and whose index grows, or that shrink.
TEST_F(SlotTest, OnlyWhatDiffersFromTheSlotIsWritten) {
  struct Memory : avi::SlotFile::Folder {
    std::unique_ptr<base::IO> Create(std::string const&) override {
      auto created = std::make_unique<test::FaultIO>();
      file = created.get();
      return created;
    }
    test::FaultIO* file = nullptr;
  } folder;
  avi::SlotFile slots(_path, 1 << 20, &folder);
  int number = 0;
  std::size_t written = 0;
  for (std::size_t size :
       {4096, 4100, 100000, 100300, 100600, 100900, 300000, 300000, 50, 200000, 100, 200000})
    for (int slot : {0, 1}) {
      SCOPED_TRACE(testing::Message() << slot << " " << size);
      std::vector<unsigned char> bytes(size);
      for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * i >> 8);
      bytes[9] = static_cast<unsigned char>(++number);
      if (size == 4100) base::Store32(&bytes[4096], 0x6DD90A9D);  // its CRC is 0
      EXPECT_TRUE(slots.Store(bytes.data(), static_cast<unsigned>(size)));
      std::size_t const before = std::exchange(written, 0);
      for (auto const& call : folder.file->Calls(test::FaultIO::kWrite)) written += call.size;
      if (number > 6 && number <= 12) {
        EXPECT_LE(written - before, 16u + 3 * 4096);
      }
      avi::SlotFile::Image newest;
      test::MemoryIO file(folder.file->Bytes());
      EXPECT_TRUE(avi::SlotFile::Read(file, newest));
      EXPECT_TRUE(newest.bytes == bytes);
    }
}

// The image before it is still there, and the next one is stored.
TEST_F(SlotTest, AFaultCostsOnlyItsOwnImage) {
  using test::Call;
  std::pair<Call, int> const cases[] = {
      {Call::kOpen, EACCES}, {Call::kWrite, -ENOSPC}, {Call::kWrite, EIO},
      {Call::kSync, EIO},    {Call::kClose, EIO},     {Call::kWrite, test::SystemFault::kPart}};
  for (auto const& [call, error] : cases)
    for (std::string const& path : avi::SlotFile::Names(_path))
      for (int nth = 1, met = 1; met > 0; ++nth) {
        SCOPED_TRACE(testing::Message() << int(call) << " " << error << " " << path << " " << nth);
        avi::SlotFile slots(_path, kSlot);
        test::SystemFault const fault(call, path, nth, false, error);
        int last = -1;
        for (int bytes : kSizes) {
          int const failures = fault.Failures();
          bool const fails = !Store(slots, bytes);
          bool const must = call != Call::kClose && error != test::SystemFault::kPart;
          EXPECT_EQ(fails, must && fault.Failures() > failures);
          if (fails) {
            EXPECT_THAT(slots.Error(), HasSubstr(path + ": "));
          }
          // An image that was not made durable may be there nevertheless.
          int const newest = Newest();
          EXPECT_TRUE(newest == bytes || (fails && newest == last)) << newest;
          last = newest;
        }
        met = fault.Failures();
        EXPECT_TRUE(slots.Remove());
      }
}

// Reading returns an intact image or none.
TEST_F(SlotTest, FindsDamage) {
  constexpr int kNone = -1, kOlder = 700, kNewer = 800;
  {
    avi::SlotFile slots(_path, kSlot);
    Store(slots, kOlder);
    Store(slots, kNewer);
  }
  std::string const bytes = FileText(_path);
  constexpr std::size_t kFirst = 4096, kSecond = kFirst + kSlot;
  struct {
    std::size_t from, size;  // of what turns to garbage
    int newest;
  } const table[] = {
      {0, 512, kNone},
      {12, 4, kOlder},
      {0, bytes.size(), kNone},
      {512, 4096 - 512, kNewer},
      {kFirst, kSlot, kNewer},
      {kFirst, 1, kNewer},
      {kFirst, bytes.size() - kFirst, kNone},
      {kSecond, 4, kOlder},
      {kSecond + 4, 4, kOlder},
      {kSecond + 8, 4, kOlder},
      {kSecond + 16, 1, kOlder},
      {kSecond + 16 + kNewer - 1, 1, kOlder},
      {kSecond + 16 + kNewer, 512, kNewer},
      {kSecond, kSlot, kOlder},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(testing::Message() << row.from << " " << row.size);
    std::string damaged = bytes;
    for (std::size_t i = 0; i < row.size; ++i) damaged[row.from + i] ^= 0x5A;
    Write("a.sync", damaged);
    EXPECT_EQ(Newest(), row.newest);
  }
  for (std::size_t length = 0; length < bytes.size(); length += 100) {
    SCOPED_TRACE(length);
    Write("a.sync", bytes.substr(0, length));
    EXPECT_EQ(Newest(), length >= kSecond + 16 + kNewer  ? kNewer
                        : length >= kFirst + 16 + kOlder ? kOlder
                                                         : kNone);
  }
}

}  // namespace
}  // namespace kestro::tool
