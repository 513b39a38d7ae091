// Streams over memory, the block reader, and integers at offsets.
#include "base/IO.h"

#include <gtest/gtest.h>

#include <random>

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

// In blocks of the stream below, each read once; a read that fails moves nothing.
TEST(IOBlockReader, ReadsAsThePlainStreamDoes) {
  for (int blockSize : {1, 7, 4096, 20000, 0}) {
    MemoryIO plain(RandomBytes(10007)), copy(Text(plain));
    FaultIO below(copy);
    for (int nth = 5; nth < 2000; nth += 9) below.Fail({FaultIO::kRead, nth});
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
      int const before = below.Failures();
      unsigned const done = reader.Read(got.data(), size);
      if (below.Failures() > before) {
        ASSERT_EQ(done, IO::kFailed);
      } else {
        ASSERT_EQ(done, plain.Read(expected.data(), size)) << i;
        ASSERT_EQ(got, expected) << i;
      }
      ASSERT_EQ(reader.Tell(), plain.Tell()) << i;
    }
    EXPECT_TRUE(reader.Write("x", 1) == 0 && copy.bytes == plain.bytes);
  }
  MemoryIO memory(RandomBytes(1000));
  FaultIO io(memory);
  IOBlockReader reader(io, 100);
  for (char word[4]; reader.Read(word, 4) == 4;) continue;
  EXPECT_LE(io.Count(FaultIO::kRead), 11);
}

TEST(IOIntWriter, WritesAtAnOffsetAndComesBack) {
  FaultIO io;
  io.Fail({FaultIO::kWrite, 2});
  IOIntWriter writer(io);
  writer.Write(std::string(40, 'x').data(), 40);
  io.Seek(21, IO::kBegin);
  for (unsigned size : {0u, 4u})
    EXPECT_EQ(writer.Write32(0x44434241, 2, IOIntWriter::kBegin), size);
  EXPECT_EQ(writer.Write32(0x44434241, -4, IOIntWriter::kEnd), 4u);
  EXPECT_EQ(writer.Write32(1, -1, IOIntWriter::kBegin), 0u);
  EXPECT_EQ(io.Tell(), 21);
  EXPECT_EQ(io.Bytes(), "xxABCD" + std::string(30, 'x') + "ABCD");
}

}  // namespace
}  // namespace kestro::base
