// Recording onto devices that fail.
#include <gmock/gmock.h>

#include <algorithm>
#include <future>
#include <thread>

#include "AviMuxer.h"
#include "support/FaultIO.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

constexpr int kPackets = 160;  // of 20 KB: six blocks of the writer

std::string Payload(int i) {
  return "packet " + std::to_string(i) + std::string(20000, static_cast<char>('a' + i % 26));
}

// What became of a recording on a device.
struct Outcome {
  int taken = 0;      // packets that were not refused
  int delivered = 0;  // of these, those the file gives back, from the first on
  int errors = 0;     // messages of it
  bool check = true;
  bool opens = false;
};

Outcome RecordOn(FaultIO& device, MemoryIO const& memory) {
  Outcome outcome;
  base::ConsoleCapture console;
  {
    Recording r(&device);
    r.Track(VideoMedia());
    r.Open();
    while (outcome.taken < kPackets && r.Push(0, KeyFrame(Payload(outcome.taken)), true))
      ++outcome.taken;
    r.Close();
    r.Close();
    outcome.check = r.muxer->Check();
    outcome.errors = static_cast<int>(
        std::count_if(r.messages.begin(), r.messages.end(),
                      [](auto const& message) { return message.rfind("error", 0) == 0; }));
  }
  MemoryIO file(Text(memory));
  Playing p(&file);
  outcome.opens = p.Open();
  for (Got const& got : p.All()) {
    std::string const slice = kStart + "\x65" + Payload(outcome.delivered);
    EXPECT_EQ(slice, got.data.substr(got.data.size() - slice.size())) << "a wrong packet";
    ++outcome.delivered;
  }
  EXPECT_EQ(0, p.failures) << "an entry without its chunk";
  if (outcome.delivered > 0) {
    EXPECT_EQ(outcome.delivered, static_cast<int>(file.bytes[0x30])) << "frames in the header";
  }
  return outcome;
}

// Every write of a recording fails in turn, for a moment or for good, with nothing or a part of it
// done. Every failure is told; a moment's failure costs no packet that was taken.
TEST(Faults, EveryWriteIsReportedAndLosesNothingBefore) {
  for (bool forever : {false, true})
    for (unsigned keep : {0u, 777u, base::IO::kFailed})
      for (int nth = 1;; ++nth) {
        SCOPED_TRACE(testing::Message() << "write " << nth << " keeps " << keep << " " << forever);
        MemoryIO memory;
        FaultIO device(memory);
        device.Fail({FaultIO::kWrite, nth, forever, keep});
        Outcome const outcome = RecordOn(device, memory);
        if (device.Failures() == 0) break;
        EXPECT_EQ(device.Failures(), outcome.errors);
        EXPECT_FALSE(outcome.check);
        if (forever) continue;
        EXPECT_TRUE(outcome.opens);
        // The packet that met the failure may be in the file too: it was not lost then.
        EXPECT_GE(outcome.delivered, outcome.taken);
        EXPECT_LE(outcome.delivered, outcome.taken + 1);
      }
}

// A disk that is full after so many bytes: the file ends with a whole chunk and has its index, for
// which the last chunks make room.
TEST(Faults, FullDiskEndsWithAWholeFile) {
  MemoryIO tiny;
  FaultIO none(tiny);
  none.Capacity(10);
  EXPECT_FALSE(RecordOn(none, tiny).check) << "not even the head";
  std::string const stored = StoredKeyFrame(Payload(100));
  int64 const chunk = 8 + static_cast<int64>(stored.size() + stored.size() % 2);
  for (int64 capacity = 700; capacity < 160 * chunk;
       capacity += capacity < 100000 ? 9973 : 201011) {
    SCOPED_TRACE(capacity);
    MemoryIO memory;
    FaultIO device(memory);
    device.Capacity(capacity);
    Outcome const outcome = RecordOn(device, memory);
    EXPECT_TRUE(outcome.opens);
    EXPECT_FALSE(outcome.check);
    EXPECT_EQ(device.Failures(), outcome.errors);
    EXPECT_LE(memory.Size(), capacity);
    // As many as fit with their index entries, or one less for the odd bytes between.
    int64 const fit = (capacity - 224 - 8) / (chunk + 16);
    EXPECT_LE(std::abs(fit - outcome.delivered), 1);
  }
}

// A device that takes its time for the first block of a cache, and then may fail to store it.
struct StallIO : FaultIO {
  StallIO(base::IO& io, bool fails) : FaultIO(io), _fails(fails) {}
  unsigned Write(void const* data, unsigned size) override {
    if (size > 100000 && !std::exchange(_stalled, true)) {
      go.get_future().wait_for(std::chrono::seconds(30));
      if (_fails) Fail({kWrite, Count(kWrite) + 1});
    }
    return FaultIO::Write(data, size);
  }
  std::promise<void> go;

 private:
  bool const _fails;
  bool _stalled = false;
};

// How often the muxer's cache has made a deliverer wait.
struct Waits : plugin::avi::AviMuxer {
  static base::uint64 Of(stream::IMuxer& muxer) {
    base::IO* const writer = dynamic_cast<AviMuxer&>(muxer).*(&Waits::_blkio);
    base::uint64 waits = ~base::uint64{0};
    EXPECT_TRUE(writer != nullptr && writer->Get("waits", waits));
    return waits;
  }
};

// When a stall outlasts the cache, whoever delivers waits, and the file is as if nothing had
// happened. With `fails` the write fails in the end: the waiting ends with the error, and what was
// taken is stored all the same once the device works again.
TEST(Faults, StallsLongerThanTheCacheLoseNothing) {
  constexpr int kFit = 77, kAll = 100;  // three blocks, and less than four
  for (bool fails : {false, true}) {
    base::ConsoleCapture console;
    MemoryIO memory;
    StallIO device(memory, fails);
    Recording r(&device);
    r.Track(VideoMedia());
    ASSERT_TRUE(r.Open());
    int taken = 0;
    auto const push = [&] { return r.Push(0, KeyFrame(Payload(taken)), true) && ++taken > 0; };
    while (taken < kFit && push()) {
    }
    EXPECT_EQ(0u, Waits::Of(*r.muxer));
    std::thread other([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      device.go.set_value();
    });
    while (taken < kAll && push()) {
    }
    other.join();
    EXPECT_EQ(fails, taken < kAll);
    EXPECT_EQ(1u, Waits::Of(*r.muxer));
    EXPECT_TRUE(r.Close() || fails);
    Playing p(&memory);
    ASSERT_TRUE(p.Open());
    int delivered = 0;
    for (Got got = p.NextGot(); got.track >= 0; got = p.NextGot(), ++delivered) {
      std::string const slice = kStart + "\x65" + Payload(delivered);
      EXPECT_EQ(slice, got.data.substr(got.data.size() - slice.size()));
    }
    EXPECT_EQ(taken, delivered);
  }
}

}  // namespace
}  // namespace kestro::test
