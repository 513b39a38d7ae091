// Streams over memory, the block reader, and integers at offsets.
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
  EXPECT_EQ(io.Write("abcde", 5) + io.Write("fghij", 5), 8u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(io.Data()), 8), "abcdefgh");
  EXPECT_TRUE(io.Truncate(3) && !io.Truncate(4) && !io.Truncate(-1));
  char bytes[8];
  EXPECT_EQ(io.Read(bytes, 8), 0u) << "the position stays";
  EXPECT_TRUE(io.Seek(-2, IO::kEnd) && io.Read(bytes, 8) == 2);
  EXPECT_TRUE(io.Seek(100, IO::kBegin));
  EXPECT_EQ(io.Write("x", 1), 0u);
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
      ASSERT_TRUE(got == expected && reader.Tell() == plain.Tell()) << i;
    }
    EXPECT_TRUE(reader.Write("x", 1) == 0 && below.bytes == plain.bytes);
  }
}

TEST(IOBlockReader, AsksOncePerBlockAndSurvivesAFailedRead) {
  MemoryIO memory(RandomBytes(1000));
  FaultIO io(memory);
  io.Fail({FaultIO::kRead, 2});
  IOBlockReader reader(io, 100);
  std::string got(1000, '\0');
  EXPECT_EQ(reader.Read(got.data(), 120), IO::kFailed);
  EXPECT_EQ(reader.Tell(), 0) << "a failed read moves nothing";
  for (int at = 0; at < 1000; at += 4) ASSERT_EQ(reader.Read(&got[at], 4), 4u);
  EXPECT_TRUE(got == Text(memory));
  EXPECT_EQ(io.Count(FaultIO::kRead), 2 + 10);
}

TEST(IOInt, WritingAtAnOffsetComesBack) {
  IOBuffer buffer(64);
  MemoryIO memory, target;
  IOCacheWriter cache(&target, 16, 1);
  FaultIO failing;
  failing.Fail({FaultIO::kWrite, 2});
  for (IO* io : std::initializer_list<IO*>{&buffer, &memory, &cache, &failing}) {
    IOIntWriter writer(*io);
    writer.Write(std::string(40, 'x').data(), 40);
    io->Seek(21, IO::kBegin);
    EXPECT_EQ(writer.Write32(0x44434241, 2, IOIntWriter::kBegin), io == &failing ? 0u : 4u);
    EXPECT_EQ(writer.Write32(0x44434241, -4, IOIntWriter::kEnd), 4u);
    EXPECT_EQ(writer.Write32(1, -1, IOIntWriter::kBegin), 0u);
    EXPECT_EQ(io->Tell(), 21);
  }
  EXPECT_EQ(Text(memory), "xxABCD" + std::string(30, 'x') + "ABCD");
}

}  // namespace
}  // namespace kestro::base
