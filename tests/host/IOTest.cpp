// Streams over memory, the block reader, integers, and the transfer reports.
#include "base/IO.h"

#include <gtest/gtest.h>

#include <random>

#include "base/IOCacheWriter.h"
#include "support/FaultIO.h"

namespace kestro::base {
namespace {

using test::FaultIO;
using test::MemoryIO;
using test::Text;

std::string RandomBytes(int size) {
  std::minstd_rand random(7);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  for (char& c : bytes) c = static_cast<char>(random() >> 8);
  return bytes;
}

TEST(IOBuffer, HoldsWhatFits) {
  IOBuffer io(8);
  EXPECT_EQ(io.Max(), 8);
  EXPECT_EQ(io.Size(), 0) << "clearing the memory is not writing";
  EXPECT_EQ(io.Write("abcde", 5), 5u);
  EXPECT_EQ(io.Write("fghij", 5), 3u);
  EXPECT_EQ(io.Write("k", 1), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(io.Data()), 8), "abcdefgh");
  EXPECT_TRUE(io.Truncate(3));
  EXPECT_FALSE(io.Truncate(4));
  EXPECT_FALSE(io.Truncate(-1));
  EXPECT_EQ(io.Tell(), 8) << "the position stays";
  char bytes[8];
  EXPECT_EQ(io.Read(bytes, 8), 0u);
  EXPECT_TRUE(io.Seek(-2, IO::kEnd));
  EXPECT_EQ(io.Read(bytes, 8), 2u);
  EXPECT_TRUE(io.Seek(5, IO::kBegin));
  EXPECT_EQ(io.Write(nullptr, 0), 0u);
  EXPECT_EQ(io.Size(), 3) << "nothing was written there";
  EXPECT_TRUE(io.Seek(100, IO::kBegin));
  EXPECT_EQ(io.Write("x", 1), 0u);
  EXPECT_FALSE(io.Seek(-1, IO::kBegin));
  EXPECT_EQ(IOBuffer(-1).Max(), 0);
}

TEST(IOBlockReader, ReadsAsThePlainStreamDoes) {
  for (int blockSize : {1, 7, 4096, 20000, 0}) {
    MemoryIO plain(RandomBytes(10007)), below(Text(plain));
    below.Seek(11, IO::kBegin);
    plain.Seek(11, IO::kBegin);
    IOBlockReader reader(below, blockSize);
    std::minstd_rand random(blockSize + 1);
    for (int i = 0; i < 2000; ++i) {
      if (random() % 3 == 0) {
        int const whence = static_cast<int>(random() % 3);
        auto const offset = static_cast<int64>(random() % 12000) - (whence > 0 ? 6000 : 1000);
        ASSERT_EQ(reader.Seek(offset, whence), plain.Seek(offset, whence));
      }
      auto const size = random() % (random() % 9 == 0 ? 9000 : 40);
      std::string got(size, '-'), expected(size, '-');
      ASSERT_EQ(reader.Read(got.data(), size), plain.Read(expected.data(), size)) << i;
      ASSERT_TRUE(got == expected) << i;
      ASSERT_EQ(reader.Tell(), plain.Tell()) << i;
    }
    EXPECT_EQ(reader.Write("x", 1), 0u);
    EXPECT_TRUE(below.bytes == plain.bytes);
  }
}

TEST(IOBlockReader, SurvivesAFailedRead) {
  MemoryIO memory(RandomBytes(100));
  FaultIO io(memory);
  io.Fail({FaultIO::kRead, 2});
  IOBlockReader reader(io, 16);
  std::string got(100, '\0');
  EXPECT_EQ(reader.Read(got.data(), 20), IO::kFailed);
  EXPECT_EQ(reader.Tell(), 0) << "a failed read moves nothing";
  EXPECT_EQ(reader.Read(got.data(), 100), 100u);
  EXPECT_TRUE(got == Text(memory));
}

TEST(IOBlockReader, AsksBelowOncePerBlock) {
  MemoryIO memory(RandomBytes(1000));
  FaultIO io(memory);
  IOBlockReader reader(io, 100);
  unsigned value;
  for (int i = 0; i < 250; ++i) reader.Read(&value, 4);
  EXPECT_EQ(io.Count(FaultIO::kRead), 10);
}

TEST(IOInt, LittleEndianWithShortReads) {
  MemoryIO memory;
  IOIntWriter writer(memory);
  EXPECT_EQ(writer.Write32(0xFEDCBA98u), 4u);
  EXPECT_EQ(writer.Write16(0x1234), 2u);
  EXPECT_EQ(writer.Write16(-2), 2u);
  EXPECT_EQ(Text(memory), "\x98\xBA\xDC\xFE\x34\x12\xFE\xFF");
  EXPECT_EQ(writer.Tell(), 8);

  IOIntReader reader(memory);
  reader.Seek(0, IO::kBegin);
  unsigned word = 1;
  unsigned short half = 1;
  EXPECT_EQ(reader.Read32(), 0xFEDCBA98u);
  EXPECT_TRUE(reader.Read16(half));
  EXPECT_EQ(half, 0x1234);
  EXPECT_FALSE(reader.Read32(word)) << "two bytes are left";
  EXPECT_EQ(word, 1u);
  EXPECT_EQ(reader.Read32(), 0u);
  EXPECT_FALSE(reader.Read16(half));
  EXPECT_EQ(half, 0x1234);
}

TEST(IOInt, WritingAtAnOffsetComesBack) {
  IOBuffer buffer(64);
  MemoryIO memory, target;
  IOCacheWriter cache(&target, 16, 1);
  FaultIO failing;
  failing.Fail({FaultIO::kWrite, 2});
  for (IO* io : {static_cast<IO*>(&buffer), static_cast<IO*>(&memory), static_cast<IO*>(&cache),
                 static_cast<IO*>(&failing)}) {
    IOIntWriter writer(*io);
    writer.Write(std::string(40, 'x').data(), 40);
    io->Seek(21, IO::kBegin);
    EXPECT_EQ(writer.Write32(0x44434241, 2, IOIntWriter::kBegin), io == &failing ? 0u : 4u);
    EXPECT_EQ(io->Tell(), 21);
    EXPECT_EQ(writer.Write32(0x44434241, -4, IOIntWriter::kEnd), 4u);
    EXPECT_EQ(writer.Write32(1, -1, IOIntWriter::kBegin), 0u);
    EXPECT_EQ(io->Tell(), 21);
    EXPECT_EQ(io->Size(), 40);
  }
  EXPECT_EQ(Text(memory), "xxABCD" + std::string(30, 'x') + "ABCD");
}

TEST(IOCallBack, ReportsTransfers) {
  static std::string told;
  told.clear();
  FaultIO io;
  io.Fail({FaultIO::kWrite, 2, false, 2});
  IOCallBack reporting(io, 7, [](unsigned id, void* data, unsigned size) {
    told += std::to_string(id) + ":" + std::string(static_cast<char*>(data), size) + " ";
  });
  reporting.Write("abc", 3);
  EXPECT_EQ(reporting.Write("defg", 4), 2u);
  reporting.Seek(0, IO::kBegin);
  char bytes[8];
  EXPECT_EQ(reporting.Read(bytes, 4), 4u);
  io.Fail({FaultIO::kRead, 2});
  EXPECT_EQ(reporting.Read(bytes, 4), IO::kFailed);
  EXPECT_EQ(told, "7:abc 7:de 7:abcd ");
  IOCallBack silent(io, 7, nullptr);
  EXPECT_EQ(silent.Write("x", 1), 1u);
}

}  // namespace
}  // namespace kestro::base
