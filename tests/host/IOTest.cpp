// Streams over memory, and integers at offsets.
#include "base/IO.h"

#include <gtest/gtest.h>

#include "support/FaultIO.h"

namespace kestro::base {
namespace {

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

TEST(IOIntWriter, WritesAtAnOffsetAndComesBack) {
  test::FaultIO io;
  io.Fail({test::FaultIO::kWrite, 2});
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
