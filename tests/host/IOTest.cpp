// Readers in blocks: what they return, and the reads that reach the device. Streams over memory,
// and integers at offsets.
#include <gtest/gtest.h>

#include <random>

#include "base/IClass.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"

namespace kestro::base {
namespace {

using test::Eventually;
using test::FaultIO;
using test::MemoryIO;

constexpr int kBlock = 100;

// A reader made as the demuxer makes it, over a device of numbered bytes.
struct Rig {
  explicit Rig(int64 size, int blocks = 8, int64 preload = 0, int blockSize = kBlock) {
    for (int64 i = 0; i < size; ++i)
      memory.bytes.push_back(static_cast<unsigned char>(i * 7 + i / 251));
    cache = Make<IO>("KestIOCacheReader-io-cache-reader-kest", static_cast<IO*>(&device), blockSize,
                     blocks, preload);
    EXPECT_NE(cache, nullptr);
  }
  // Whether a read returns what the stream holds.
  bool Good(int64 at, unsigned size) {
    std::vector<unsigned char> got(size + 1), expected(size + 1);
    int64 const end = std::clamp<int64>(memory.Size() - at, 0, size);
    for (int64 i = 0; i < end; ++i) expected[i] = memory.bytes[at + i];
    return cache->Seek(at, IO::kBegin) && cache->Read(got.data(), size) == end &&
           cache->Tell() == at + end && got == expected;
  }
  bool Preloaded(int64 bytes) {
    return Eventually([this, bytes] {
      int64 now = 0;
      return cache->Get("preloaded", now) && now == bytes;
    });
  }
  // The blocks that were read since the last call; waits until the thread is idle.
  std::vector<int64> Blocks(std::size_t count) {
    EXPECT_TRUE(Eventually([&] { return Reads() >= seen + count; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // so that one read too many is seen
    std::vector<int64> blocks;
    for (; seen < Reads(); ++seen) blocks.push_back(device.Calls(FaultIO::kRead)[seen].at / kBlock);
    return blocks;
  }
  std::size_t Reads() const { return device.Calls(FaultIO::kRead).size(); }

  MemoryIO memory;
  FaultIO device{memory};
  std::size_t seen = 0;
  std::unique_ptr<IO> cache;
};

using Numbers = std::vector<int64>;

TEST(IOCacheReader, ReadsAheadAndNoFurther) {
  Rig rig(10050);
  EXPECT_EQ(rig.Blocks(0), Numbers{}) << "nothing before the first read";
  // Each block passed in order doubles what is read ahead, up to six of the eight blocks.
  Numbers const steps[] = {{0, 1}, {2, 3}, {4, 5, 6}, {7, 8, 9}, {10}};
  for (int64 i = 0; i < 5; ++i) {
    EXPECT_TRUE(rig.Good(i * kBlock + 7, 50));
    EXPECT_EQ(rig.Blocks(steps[i].size()), steps[i]) << i;
  }
  rig.device.Hold(true);  // the blocks ahead and the last one are in memory
  EXPECT_TRUE(rig.Good(3 * kBlock, 8 * kBlock));
  EXPECT_TRUE(rig.Good(4 * kBlock, 1));
  rig.device.Hold(false);
  EXPECT_TRUE(rig.Good(9990, 100)) << "the end";
  EXPECT_TRUE(rig.Good(10050, 1)) << "the end";
  EXPECT_TRUE(rig.Good(1 << 30, 1)) << "the end";
  for (auto const& read : rig.device.Calls(FaultIO::kRead)) EXPECT_EQ(read.size, unsigned(kBlock));
}

TEST(IOCacheReader, PlaysBackwardWithoutThrashing) {
  Rig rig(100 * kBlock);
  for (int64 i = 90; i >= 0; i -= 2) EXPECT_TRUE(rig.Good(i * kBlock, 10));
  auto blocks = rig.Blocks(90);
  std::sort(blocks.begin(), blocks.end());
  EXPECT_TRUE(std::unique(blocks.begin(), blocks.end()) == blocks.end()) << "each block once";
  EXPECT_LE(blocks.size(), 92u);
  for (int64 i = 95; i >= 0; i -= 10) EXPECT_TRUE(rig.Good(i * kBlock, 10));
  EXPECT_LE(rig.Blocks(10).size(), 20u) << "far jumps: the block and the next one";
}

TEST(IOCacheReader, KeepsThePreload) {
  Rig rig(20 * kBlock, 2, 7 * kBlock + 1);
  EXPECT_TRUE(rig.Good(2 * kBlock, 10));  // and one ahead
  EXPECT_TRUE(rig.cache->Set("preload", true));
  EXPECT_TRUE(rig.Preloaded(7 * kBlock + 1));
  EXPECT_EQ(rig.Blocks(8).size(), 8u) << "blocks 0 to 7, each once";
  EXPECT_TRUE(rig.Good(19 * kBlock, 10));
  EXPECT_TRUE(rig.Good(12 * kBlock, 10));
  rig.Blocks(3);
  rig.device.Hold(true);
  EXPECT_TRUE(rig.cache->Set("preload", true));
  EXPECT_TRUE(rig.Good(kBlock, 6 * kBlock));
  EXPECT_TRUE(rig.Good(3, 99));
  rig.device.Hold(false);
  EXPECT_EQ(rig.Blocks(0), Numbers{}) << "it was on";
  bool on = true;
  EXPECT_TRUE(rig.cache->Set("preload", false));
  EXPECT_TRUE(rig.cache->Get("preload", on));
  EXPECT_FALSE(on);
  EXPECT_TRUE(rig.Preloaded(0));
  EXPECT_TRUE(rig.Good(15 * kBlock, 100));
  EXPECT_TRUE(rig.Good(0, 2000));
  EXPECT_GE(rig.Blocks(15).size(), 15u) << "the memory is gone";
  EXPECT_TRUE(rig.cache->Set("preload", true));
  EXPECT_TRUE(rig.Preloaded(7 * kBlock + 1)) << "again";
  EXPECT_GE(rig.Blocks(8).size(), 8u) << "again";

  Rig small(250, 1, INT64_MAX);
  EXPECT_TRUE(small.cache->Set("preload", true));
  EXPECT_TRUE(small.Preloaded(250));
  EXPECT_TRUE(small.Good(0, 300));
  EXPECT_EQ(small.Reads(), 3u);
}

TEST(IOCacheReader, ReadsOnTheCallersThread) {
  Rig rig(10 * kBlock, 0);
  EXPECT_TRUE(rig.Good(250, 120));
  EXPECT_TRUE(rig.Good(310, 50));
  EXPECT_EQ(rig.Reads(), 2u) << "two blocks, nothing ahead";
  rig.device.Fail({FaultIO::kRead, 3});
  EXPECT_TRUE(rig.Good(710, 20)) << "asks again for what has failed";
  EXPECT_EQ(rig.Reads(), 4u);
  rig.device.Fail({FaultIO::kRead, 5, true});
  EXPECT_TRUE(rig.cache->Seek(0, IO::kBegin));
  char byte = 0;
  EXPECT_EQ(rig.cache->Read(&byte, 1), IO::kFailed);
}

TEST(IOCacheReader, ReportsFailuresAndReadsOnAroundThem) {
  Rig rig(1000);
  rig.device.Readable(630);
  EXPECT_TRUE(rig.Good(0, 50));
  EXPECT_TRUE(rig.Good(600, 30));
  EXPECT_TRUE(rig.Good(610, 10));
  unsigned char data[300];
  EXPECT_TRUE(rig.cache->Seek(550, IO::kBegin));
  EXPECT_EQ(rig.cache->Read(data, 300), 80u) << "what lies before the bad sectors";
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(rig.cache->Read(data, 200), IO::kFailed);
    EXPECT_EQ(rig.cache->Tell(), 630);
    EXPECT_EQ(rig.cache->Error(), EIO);
  }
  rig.device.Readable(INT64_MAX);
  EXPECT_TRUE(rig.Good(0, 1000)) << "read around the block that failed";

  Rig damaged(1000);
  damaged.device.Fail({FaultIO::kRead, 3});
  for (int64 at = 0; at < 1000; at += 25) EXPECT_TRUE(damaged.Good(at, 25)) << at;
  EXPECT_EQ(damaged.device.Failures(), 1);

  Rig cut(1000, 4);  // shorter than it was
  cut.memory.bytes.resize(150);
  EXPECT_TRUE(cut.Good(100, 100));
  EXPECT_TRUE(cut.Good(300, 10));
}

// Random reads from a device that fails at times; what precedes a fault is returned.
void ExpectReads(IO& reader, MemoryIO const& stream, FaultIO& device) {
  for (int nth = 5; nth < 2000; nth += 9) device.Fail({FaultIO::kRead, nth});
  MemoryIO plain(test::Text(stream));
  plain.Seek(reader.Tell(), IO::kBegin);
  std::minstd_rand random(7);
  for (int i = 0; i < 2000; ++i) {
    if (random() % 3 == 0) {
      int const whence = static_cast<int>(random() % 3);
      auto const offset = static_cast<int64>(random() % 12000) - (whence > 0 ? 6000 : 1000);
      ASSERT_EQ(reader.Seek(offset, whence), plain.Seek(offset, whence));
    }
    auto const size = random() % (random() % 50 == 0 ? 9000 : 40);
    std::string got(size, '-'), expected(size, '-');
    int const before = device.Failures();
    unsigned const done = reader.Read(got.data(), size);
    if (done == IO::kFailed) {
      ASSERT_GT(device.Failures(), before);
    } else {
      unsigned const whole = plain.Read(expected.data(), size);
      if (done < whole) {
        ASSERT_GT(device.Failures(), before) << i;
        plain.Seek(int64{done} - whole, IO::kCurrent);
        std::fill(expected.begin() + done, expected.end(), '-');
        std::fill(got.begin() + done, got.end(), '-');
      }
      ASSERT_EQ(done, std::min(done, whole)) << i;
      ASSERT_EQ(got, expected) << i;
    }
    ASSERT_EQ(reader.Tell(), plain.Tell()) << i;
  }
  EXPECT_EQ(reader.Write("x", 1), 0);
  EXPECT_EQ(stream.bytes, plain.bytes);
  EXPECT_EQ(device.Overlaps(), 0);
}

TEST(IOCacheReader, ReadsTheStreamWhileThePreloadIsSwitched) {
  for (int blocks : {0, 1, 2, 5, 16}) {
    SCOPED_TRACE(blocks);
    Rig rig(10007, blocks, 4321, 64 + blocks);
    std::atomic<bool> stop{false};
    std::thread switches([&] {
      for (bool on = true; !stop; on = !on)
        rig.cache->Set("preload", on), std::this_thread::yield();
    });
    ExpectReads(*rig.cache, rig.memory, rig.device);
    stop = true;
    switches.join();
  }
}

TEST(IOBlockReader, ReadsEachBlockOnce) {
  for (int blockSize : {0, 7, 4096, 20000}) {
    SCOPED_TRACE(blockSize);
    Rig rig(10007);
    rig.device.Seek(11, IO::kBegin);
    IOBlockReader reader(rig.device, blockSize);
    ExpectReads(reader, rig.memory, rig.device);
  }
  Rig rig(1000);
  IOBlockReader reader(rig.device, 100);
  for (char word[4]; reader.Read(word, 4) == 4;) continue;
  EXPECT_LE(rig.Reads(), 11u);
}

TEST(IOBuffer, HoldsWhatFits) {
  IOBuffer io(8);
  EXPECT_EQ(io.Write("abcde", 5), 5u);
  EXPECT_EQ(io.Write("fghij", 5), 3u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(io.Data()), 8), "abcdefgh");
  EXPECT_TRUE(io.Truncate(3));
  EXPECT_FALSE(io.Truncate(4));
  EXPECT_FALSE(io.Truncate(-1));
  char bytes[8];
  EXPECT_EQ(io.Read(bytes, 8), 0u) << "the position stays";
  EXPECT_TRUE(io.Seek(-2, IO::kEnd));
  EXPECT_EQ(io.Read(bytes, 8), 2);
  EXPECT_TRUE(io.Seek(100, IO::kBegin));
  EXPECT_EQ(io.Write("x", 1), 0u);
  EXPECT_TRUE(io.Truncate(0));
}

TEST(IOIntWriter, WritesAtAnOffsetAndKeepsThePosition) {
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
