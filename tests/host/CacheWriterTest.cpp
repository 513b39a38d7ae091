// The caching writer against a plain model, and on devices that fail.
#include "base/IOCacheWriter.h"

#include <gtest/gtest.h>

#include <random>

#include "base/IClass.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"

namespace kestro::base {
namespace {

using test::FaultIO;
using test::MemoryIO;
using test::Text;

// Made as the muxers make it.
std::unique_ptr<IO> NewWriter(IO& target, int blockSize) {
  return Make<IO>("io-cache-writer", &target, blockSize, 3);
}

// A device that holds a text and asks for a number of blocks, unless that is 0.
struct Device : FaultIO {
  Device(int blocks, std::string const& text) : wanted(blocks) {
    _io.Write(text.data(), static_cast<unsigned>(text.size()));
    _io.Seek(0, kBegin);
  }
  using FaultIO::Get;
  bool Get(char const* name, void* value, std::type_info const*) override {
    if (name != std::string("cacheBlocks") || wanted == 0) return false;
    *static_cast<int*>(value) = wanted;
    return true;
  }
  int wanted;
};

// A writer over a device, with a model of what it should hold.
struct Rig {
  explicit Rig(int blockSize, int wanted = 0, std::string const& text = "")
      : target(wanted, text), model(text), writer(NewWriter(target, blockSize)) {
    writer->SetWithType<FuncIO>("func_error", [this](IO* io) {
      EXPECT_EQ(io->Error(), target.Error());
      return ++reports > 0;
    });
  }

  // Writes at a position; the model gets what was taken.
  unsigned Put(int64 at, std::string const& data) {
    EXPECT_TRUE(writer->Seek(at, IO::kBegin));
    unsigned const done = writer->Write(data.data(), static_cast<unsigned>(data.size()));
    EXPECT_EQ(writer->Tell(), at + done);
    model.Seek(at, IO::kBegin);
    if (done > 0) model.Write(data.data(), done);
    return done;
  }
  unsigned Append(std::string const& data) { return Put(writer->Size(), data); }
  bool Truncate(int64 size) { return writer->Truncate(size) && model.Truncate(size); }
  bool Good() { return target.Bytes() == Text(model); }

  Device target;
  MemoryIO model;
  int reports = 0;
  std::unique_ptr<IO> writer;
};

TEST(IOCacheWriter, HoldsWhatWasWritten) {
  for (int blockSize : {1, 13, 64, 100000}) {
    SCOPED_TRACE(blockSize);
    Rig rig(blockSize, 0, "what the target held before");
    std::minstd_rand random(blockSize);
    for (int i = 0; i < 2000; ++i) {
      int64 const end = rig.model.Size(), at = random() % (end + 1);
      std::string data(random() % (random() % 10 == 0 ? 300 : 30) + 1, 'a' + random() % 26);
      unsigned const what = random() % 80;  // mostly patches: more than are gathered
      if (what == 0) {
        ASSERT_TRUE(rig.writer->Flush());
        ASSERT_TRUE(rig.Good());
      } else if (what == 1) {
        rig.writer->Seek(7, IO::kBegin);
        ASSERT_TRUE(rig.Truncate(at)) << "the position stays";
        ASSERT_EQ(rig.writer->Tell(), 7) << "the position stays";
      } else if (what == 2) {
        std::string got(40, '-'), expected(40, '-');
        rig.model.Seek(at, IO::kBegin);
        rig.writer->Seek(at, IO::kBegin);
        ASSERT_EQ(rig.writer->Read(got.data(), 40), rig.model.Read(expected.data(), 40));
        ASSERT_EQ(got, expected);
      } else {  // after a gap, inside or at the end
        int64 const to = what == 3 ? end + random() % 200 : what < 50 ? at : end;
        ASSERT_EQ(rig.Put(to, data), data.size());
      }
      ASSERT_EQ(rig.writer->Size(), rig.model.Size());
      ASSERT_EQ(rig.writer->GoodEnd(), rig.model.Size());
    }
    EXPECT_FALSE(rig.writer->Truncate(rig.writer->Size() + 1));
    rig.writer.reset();
    EXPECT_TRUE(rig.Good());
    EXPECT_EQ(rig.reports, 0);
  }
}

TEST(IOCacheWriter, WritesAlignedBlocksAndGatheredPatches) {
  Rig rig(64);
  for (int i = 0; i < 100; ++i) {
    rig.Append("seven b");
    if (i == 50) {
      EXPECT_TRUE(rig.writer->Flush());
    }
  }
  rig.Append(std::string(1000, 'x'));
  EXPECT_TRUE(rig.writer->Flush());
  int const before = rig.target.Count(FaultIO::kWrite);
  for (int field = 0; field < 10; ++field) rig.Put(100 + 4 * field, "word");
  rig.Put(110, "again");
  rig.writer.reset();
  EXPECT_TRUE(rig.Good());
  EXPECT_EQ(rig.target.Count(FaultIO::kWrite), before + 1) << "one patch";
  int odd = 0;  // the patch, and blocks around the flushes
  for (auto const& write : rig.target.Calls(FaultIO::kWrite))
    odd += write.at % 64 != 0 || write.size != 64;
  EXPECT_LE(odd, 4);
  EXPECT_EQ(rig.target.Count(FaultIO::kFlush), 0) << "that is left to the target";
}

TEST(IOCacheWriter, WaitsOnlyWhenAllBlocksAreFull) {
  for (int wanted : {0, 5}) {
    Rig rig(64, wanted);
    FaultIO& target = rig.target;
    IO& writer = *rig.writer;
    target.Hold(true);
    EXPECT_FALSE(writer.Set("blocks", 2)) << "only up";
    ASSERT_TRUE(wanted != 0 || writer.Set("blocks", 5));
    for (int i = 0; i < 40; ++i) rig.Append("8 bytes" + std::to_string(i % 10));
    uint64 waits = 1;
    ASSERT_TRUE(writer.Get("waits", waits));
    EXPECT_EQ(waits, 0u);
    EXPECT_TRUE(test::Eventually([&] { return target.Count(FaultIO::kWrite) > 0; }));
    rig.Put(2, "across all the blocks: of the first, under way, and of others in memory" +
                   std::string(12, '.'));
    rig.Put(250, "later");
    std::thread device([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      target.Hold(false);
    });
    rig.Append("one more than there is room for");
    device.join();
    EXPECT_TRUE(writer.Get("waits", waits));
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(writer.Size(), rig.model.Size());
    EXPECT_TRUE(writer.Flush());
    EXPECT_TRUE(rig.Good());
    int64 end = 0;
    for (auto const& write : target.Calls(FaultIO::kWrite)) {
      EXPECT_TRUE(write.at == end || write.at == 2) << "in order, then the patch";
      end = std::max<int64>(end, write.at + write.size);
    }
    EXPECT_EQ(target.Count(FaultIO::kWrite), 7) << "of patches only what was under way";
  }
}

TEST(IOCacheWriter, APatchOutlivesTheBlockThatFails) {
  Rig rig(64);
  rig.target.Fail({FaultIO::kWrite, 1});
  rig.target.Hold(true);
  rig.Append(std::string(80, 'a'));
  EXPECT_TRUE(test::Eventually([&] { return rig.target.Count(FaultIO::kWrite) > 0; }));
  rig.Put(2, "while it is being stored");
  rig.target.Hold(false);
  EXPECT_FALSE(rig.writer->Flush());
  EXPECT_TRUE(rig.Truncate(80));
  EXPECT_TRUE(rig.writer->Flush());
  EXPECT_TRUE(rig.Good());
}

}  // namespace
}  // namespace kestro::base
