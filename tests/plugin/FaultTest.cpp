// Recording onto devices that fail, and playing from them: every call that can fail does, in turn.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <numeric>
#include <thread>

#include "AviMuxer.h"
#include "stream/PacketQueue.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"
#include "support/FileLayout.h"
#include "support/Playing.h"
#include "support/SystemFault.h"

namespace kestro::test {
namespace {

namespace fs = std::filesystem;

enum { kPlain, kIndexFirst, kSpill, kQueue, kInPlace, kImage, kCallback, kWays };
char const* const kNames[] = {"plain",    "index first", "spill",   "queue",
                              "in place", "image",       "callback"};
constexpr unsigned kHeader = 1028, kReserve = 8192;
constexpr int kPackets = 120;  // pictures of 20 KB and sound in turn: five blocks of the writer
constexpr int kMany = 9000;    // with small ones behind them: records are spilled by thousands

// Packets know their number.
std::string const& Data(int i) {
  static std::vector<std::string> const all = [] {
    std::vector<std::string> made;
    for (int n = 0; n < kMany; ++n) {
      std::size_t const size = n >= kPackets ? 20 : n % 2 == 0 ? 20000 : 195;
      std::string const payload = std::string(size, 'p') + std::to_string(100000 + n);
      made.push_back(n % 2 == 0 ? KeyFrame(payload) : payload);
    }
    return made;
  }();
  return all[static_cast<std::size_t>(i)];
}
// What a packet takes in the file.
int64 ChunkBytes(int i) {
  std::size_t const size = Data(i).size() - (i % 2 == 0 ? 6 : 0);
  return static_cast<int64>(8 + size + size % 2);
}

void Ignore(unsigned, unsigned, unsigned char const*, unsigned, unsigned) {}

// What became of a recording.
struct Outcome {
  std::vector<int> taken;  // the packets that were not refused
  int errors = 0, warnings = 0;
  bool check = true, checkIO = true;  // when the first packet was refused, or in the end
  bool closed = true;

  bool Told() const { return errors > 0 && !check && !checkIO; }
  bool Silent() const { return errors + warnings == 0 && check && closed; }
};

// Records all packets to the stream, or to the file where there is none.
Outcome Record(int way, base::IO* io, std::string const& path = {}, int packets = 0) {
  Outcome o;
  if (packets == 0) packets = way == kSpill ? kMany : way == kIndexFirst ? 2000 : kPackets;
  base::ConsoleCapture console;
  testing::internal::CaptureStdout();
  Shape shape;
  shape.indexFirst = way == kIndexFirst || way == kImage;
  Tags tags(shape);
  {
    Recording r(io, way < kInPlace ? "AviMuxer-avi-muxer" : "VFIAviMuxer-avi-muxer-vfi");
    auto& m = *r.muxer;
    m.Set("path", path);
    m.Set("vidtag", tags.object.get());
    if (way == kSpill) m.Set("listfile", 1), m.Set("diskName", 'F');
    m.Set("flushtime", 400u);
    m.Set("periodicSyncEn", way > kInPlace);
    m.Set("periodicSyncCallback", &Ignore);
    m.Set("reservedSize", way == kImage ? kHeader + kReserve + 8ull : kReserve);
    m.Set("periodicSyncHeaderSize", 0ull + kHeader);
    m.Set("periodicSyncIdx1Size", kReserve + 8ull);
    r.Track(VideoMedia()).Track(SoundMedia());
    base::AttrSet attrs;
    attrs.Add("Register", "packet-queue");
    std::unique_ptr<stream::PacketQueue> const queue(base::IClass::New<stream::PacketQueue>(attrs));
    if (way == kQueue)
      for (std::size_t i = 0; i < 2; ++i) {
        auto const track = queue->AddTrack();
        IPort::Link(*track.output, *r.ports[i]);
        track.input->Offer(r.media[i].get());
        r.ports[i] = track.input;
      }
    EXPECT_TRUE(r.Open() && queue->StatusChange(IStatus::kRunning));
    for (int i = 0; i < packets; ++i) {
      bool const taken = r.Push(i % 2, Data(i), true, i / 2 * 40);
      if (taken) o.taken.push_back(i);
      if (!taken && o.check) o.check = m.Check(), o.checkIO = m.CheckIO();
      EXPECT_TRUE(way == kQueue || taken == m.CheckIO()) << "packet " << i;
    }
    queue->StatusChange(IStatus::kClosed);
    base::uint64 dropped = 0;
    EXPECT_TRUE(queue->Get("dropped", dropped));
    o.taken.resize(o.taken.size() - dropped - !queue->Check());  // one was refused by the muxer
    o.closed = r.Close();
    EXPECT_TRUE(r.Close() && m.Close()) << "a second time";
    if (o.check) o.check = m.Check(), o.checkIO = m.CheckIO();
    for (auto const& message : r.messages) ++(message[0] == 'e' ? o.errors : o.warnings);
  }
  unsigned char first = 9;
  EXPECT_TRUE(tags.object->Get("idx1_first", first) && first == shape.indexFirst);
  testing::internal::GetCapturedStdout();
  return o;
}

// The packets that a file gives back, each with its data.
std::vector<int> Delivered(std::string const& file) {
  MemoryIO io(file);
  base::ConsoleCapture console;
  Playing p(&io);
  std::vector<int> all;
  if (!p.Open()) return all;
  for (Got const& got : p.All()) {
    std::size_t const size = got.data.size(), digits = std::min<std::size_t>(size, 6);
    int const i = std::atoi(got.data.substr(size - digits).c_str()) - 100000;
    std::string const slice = Data(i).substr(i % 2 == 0 ? 26 : 0);  // what is not blanked
    EXPECT_TRUE(size >= slice.size() && got.data.substr(size - slice.size()) == slice) << i;
    all.push_back(i);
  }
  EXPECT_EQ(0, p.failures) << "an entry without its chunk";
  std::sort(all.begin(), all.end());
  return all;
}

class Faults : public testing::Test {
 protected:
  Faults() : folder(NewFolder()), path(folder + "/r.avi") {
    RegisterClasses();
    base::File::Mount('F', folder.c_str());
    descriptors = Descriptors();
  }
  ~Faults() override {
    EXPECT_EQ(descriptors, Descriptors());
    base::File::Mount('F', nullptr);
    fs::remove_all(folder);
    std::printf("%d faults injected, %d reported; %d made good\n", injected, told, silent);
  }

  // Every way of recording, for every call until none fails any more.
  static void ForEach(std::function<bool(int way, bool forever, int nth)> const& fails) {
    for (int way = kPlain; way < kWays; ++way)
      for (bool forever : {false, true})
        for (int nth = 1; Has(way); ++nth) {
          SCOPED_TRACE(testing::Message() << kNames[way] << ", call " << nth << " " << forever);
          if (!fails(way, forever, nth)) break;
        }
  }
  static bool Has(int way) {
    return way < kInPlace || base::IClass::Find("VFIAviMuxer-avi-muxer-vfi", true) != nullptr;
  }
  std::string Content() const {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void Report(bool reported) {
    EXPECT_TRUE(reported);
    ++injected;
    told += reported;
  }
  // Without faults.
  std::string const& Whole(int way) {
    if (whole[way].empty()) {
      MemoryIO io;
      EXPECT_TRUE(Record(way, &io).Silent());
      whole[way] = Text(io);
    }
    return whole[way];
  }

  // What was taken is in the file. After a failed flush it is played as far as it was synced; where
  // nothing can be written any more, what stands in the file stays.
  void ExpectKept(int way, Outcome const& o, std::string const& file, bool flush, bool dead) {
    std::size_t const start = Whole(way).find("movi") + 4;
    std::size_t const index = Whole(way).rfind("idx1");
    std::size_t const end = std::min(index > start ? index : Whole(way).size(), file.size());
    if (dead && end > start) {
      EXPECT_EQ(0, file.compare(start, end - start, Whole(way), start, end - start));
    }
    bool const syncs = way == kInPlace || way == kImage;
    if ((dead || flush) && !syncs) return;
    std::vector<int> all = o.taken;
    all.push_back(all.empty() ? 0 : all.back() + 1);  // what met the fault may be there too
    std::vector<int> const got = Delivered(file);
    ASSERT_LE(got.size(), all.size());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), all.begin()));
    std::size_t const behind = !dead && !flush ? 0 : way == kImage ? 120 : 50;
    EXPECT_GE(got.size() + behind, o.taken.size());
  }

  std::string const folder, path;
  std::string whole[kWays];
  int descriptors, injected = 0, told = 0, silent = 0;
};

// The stream that the application lends: each of its calls, with nothing or a part of it done.
TEST_F(Faults, OfTheStreamAreReported) {
  struct Case {
    FaultIO::Op op;
    unsigned keep;
  } const cases[] = {{FaultIO::kWrite, 0},
                     {FaultIO::kWrite, 777},
                     {FaultIO::kWrite, base::IO::kFailed},
                     {FaultIO::kFlush, 0},
                     {FaultIO::kTruncate, 0}};
  for (auto const& c : cases)
    ForEach([&](int way, bool forever, int nth) {
      MemoryIO memory("old");
      FaultIO device(memory);
      device.Fail({c.op, nth, forever, c.keep});
      Outcome const o = Record(way, &device);
      if (device.Failures() == 0) return false;
      Report(o.Told());
      EXPECT_EQ(device.Failures(), o.errors);
      bool const flush = c.op == FaultIO::kFlush, write = c.op == FaultIO::kWrite;
      bool const opens = c.op == FaultIO::kTruncate || (flush && nth == 1);
      if (forever && (opens || (write && c.keep == 777))) return true;
      ExpectKept(way, o, Text(memory), flush && !opens, write && forever);
      return true;
    });
}

// The files that the element opens itself, by the system's calls on each of them.
TEST_F(Faults, OfTheSystemAreReported) {
  enum Told { kError, kLoss, kWarning, kNothing };
  std::string const avi = "/r.avi", spill = ".kestro";
  struct Case {
    Call call;
    std::string file;
    int error;  // negative: a part of the data goes before it
    Told told;
  } const cases[] = {
      {Call::kOpen, avi, EACCES, kError},     {Call::kWrite, avi, -ENOSPC, kError},
      {Call::kWrite, avi, EINTR, kNothing},   {Call::kWrite, avi, SystemFault::kPart, kNothing},
      {Call::kSync, avi, EIO, kError},        {Call::kSync, avi, EINTR, kNothing},
      {Call::kClose, avi, EIO, kError},       {Call::kClose, avi, EINTR, kNothing},
      {Call::kOpen, folder, EIO, kError},     {Call::kOpen, folder, EACCES, kNothing},
      {Call::kSync, folder, EIO, kError},     {Call::kClose, folder, EIO, kNothing},
      {Call::kOpen, spill, EACCES, kWarning}, {Call::kWrite, spill, -ENOSPC, kWarning},
      {Call::kRead, spill, EIO, kLoss},       {Call::kRead, spill, SystemFault::kPart, kNothing},
      {Call::kClose, spill, EIO, kNothing},
  };
  for (auto const& c : cases)
    ForEach([&](int way, bool forever, int nth) {
      SCOPED_TRACE(testing::Message() << int(c.call) << " of " << c.file << " " << c.error);
      fs::remove(path);
      SystemFault const fault(c.call, c.file, nth, forever, c.error);
      Outcome const o = Record(way, nullptr, path);
      if (fault.Failures() == 0) return false;
      EXPECT_EQ(descriptors, Descriptors());
      if (c.told != kError) {
        // A last batch that could not be spilled is in memory still, and reading is tried twice.
        bool const again = nth > 1 || (c.told == kLoss && !forever);
        bool const good = c.told == kNothing || (again && o.Silent());
        if (good)
          ++silent;
        else if (c.told == kLoss)
          Report(o.errors == 1 && !o.check && o.checkIO);
        else
          Report(o.warnings == 1 && o.errors == 0 && o.check);
        EXPECT_TRUE(o.closed && (!good || o.Silent()));
        EXPECT_TRUE(Whole(way) == Content() || (c.told == kLoss && !good));
        return true;
      }
      Report(o.Told());
      EXPECT_TRUE(c.call != Call::kClose || !o.closed);
      EXPECT_EQ(fault.Failures(), o.errors);
      bool const flush = c.call == Call::kSync && c.file == avi && nth > 1;
      if (forever && !flush && c.call != Call::kWrite && c.call != Call::kClose) return true;
      ExpectKept(way, o, Content(), flush, c.call == Call::kWrite && forever);
      return true;
    });
}

// A file is replaced whole or not at all, and a failure on the way is told.
TEST_F(Faults, OfReplacingAFileAreReported) {
  struct Case {
    Call call;
    std::string file;
  } const cases[] = {{Call::kOpen, "/n"},  {Call::kWrite, "/n"},      {Call::kSync, "/n"},
                     {Call::kClose, "/n"}, {Call::kRename, "/r.avi"}, {Call::kOpen, folder},
                     {Call::kSync, folder}};
  std::string const next = folder + "/n";
  for (auto const& c : cases)
    for (int nth = 1;; ++nth) {
      std::ofstream(path) << "old";
      SystemFault const fault(c.call, c.file, nth);
      base::FileIO io(next.c_str(), "rwbc");
      bool done = io.Write("new", 3) == 3 && io.Flush();
      done = io.Close() && done && base::File::Rename(next.c_str(), path.c_str());
      EXPECT_TRUE(Content() == "new" || (!done && Content() == "old"));
      EXPECT_EQ(descriptors, Descriptors());
      if (fault.Failures() == 0) break;
      Report(!done);
    }
}

// A disk that is full after so many bytes, in memory or real: the file ends with a whole chunk and
// has its index, for which the last chunks make room.
TEST_F(Faults, FullDiskEndsWithAWholeFile) {
  MemoryIO tiny;
  FaultIO none(tiny);
  none.Capacity(10);
  EXPECT_TRUE(Record(kPlain, &none).Told()) << "not even the head";
  auto const ignored = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  auto const expect = [&](int way, int64 capacity, Outcome const& o, std::string const& file) {
    Report(o.Told());
    EXPECT_LE(static_cast<int64>(file.size()), capacity);
    bool const first = way == kIndexFirst || way == kInPlace || way == kImage;
    int64 end = static_cast<int64>(Whole(way).find("movi")) + 4;
    int fit = 0;
    while (end + ChunkBytes(fit) + (first ? 0 : 8 + 16 * (fit + 1)) <= capacity)
      end += ChunkBytes(fit++);
    std::vector<int> all(static_cast<std::size_t>(fit));
    std::iota(all.begin(), all.end(), 0);
    EXPECT_THAT(Delivered(file), testing::ElementsAreArray(all));
  };
  for (int way = kPlain; way < kWays; ++way)
    for (int64 capacity = 9600; Has(way) && capacity < 1200000;
         capacity += capacity < 60000 ? 9973 : 101011) {
      SCOPED_TRACE(testing::Message() << kNames[way] << " " << capacity);
      MemoryIO memory;
      FaultIO device(memory);
      device.Capacity(capacity);
      Outcome const o = Record(way, &device);
      EXPECT_EQ(device.Failures(), o.errors);
      expect(way, capacity, o, Text(memory));
      rlimit const small{static_cast<rlim_t>(capacity), limit.rlim_max};
      setrlimit(RLIMIT_FSIZE, &small);
      Outcome const real = Record(way, nullptr, path);
      setrlimit(RLIMIT_FSIZE, &limit);
      expect(way, capacity, real, Content());
    }
  std::signal(SIGXFSZ, ignored);
  if (mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=600k") != 0) return;  // not the superuser
  for (int way : {kPlain, kIndexFirst, kQueue, kInPlace, kImage, kCallback})
    if (Has(way)) {
      Outcome const o = Record(way, nullptr, path);
      expect(way, 600 * 1024, o, Content());
    }
  umount2(folder.c_str(), MNT_DETACH);
}

// Reading: a fault is told, unless the cache has asked again and got what was missing.
TEST_F(Faults, OfReadingAreReported) {
  constexpr std::size_t kFew = 20;
  ASSERT_TRUE(Record(kPlain, nullptr, path, kFew).Silent());
  struct Case {
    Call call;
    int error;
  } const cases[] = {{Call::kOpen, EIO},
                     {Call::kRead, EIO},
                     {Call::kRead, SystemFault::kPart},
                     {Call::kRead, EINTR},
                     {Call::kClose, EIO}};
  for (bool preload : {false, true})
    for (char const* alias : {"AviDemuxer-avi-demuxer", "CusAviDemuxer"})
      for (auto const& c : cases)
        for (bool forever : {false, true})
          for (int nth = 1; !preload || alias[0] == 'C'; ++nth) {
            SCOPED_TRACE(testing::Message() << alias << preload << ", call " << nth << " of kind "
                                            << int(c.call) << " " << c.error << forever);
            if (base::IClass::Find(alias, true) == nullptr) break;
            SystemFault const fault(c.call, "/r.avi", nth, forever, c.error);
            base::ConsoleCapture console;
            bool reported, complete;
            {
              Playing p(nullptr, 0, alias);
              p.demuxer->Set("path", path);
              p.demuxer->Set("preloadsz", int64{100000});
              Messages messages(*p.demuxer);
              reported = preload && !p.demuxer->Set("vlcPreload", true);
              reported = !p.Open() || reported;
              complete = p.Times().size() == kFew;
              reported = p.failures + messages.Count() > 0 || reported;
              reported = !p.demuxer->StatusChange(IStatus::kClosed) || reported;
              EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed)) << "a second time";
            }
            EXPECT_EQ(descriptors, Descriptors());
            if (fault.Failures() == 0) break;
            bool const good = c.error == SystemFault::kPart || c.error == EINTR ||
                              (preload && !forever && complete && !reported);
            good ? void(++silent) : Report(reported);
            EXPECT_TRUE(!good || (complete && !reported));
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
TEST(Stalls, LongerThanTheCacheLoseNothing) {
  constexpr int kFit = 77, kAll = 100;  // three blocks, and less than four
  for (bool fails : {false, true}) {
    base::ConsoleCapture console;
    MemoryIO memory;
    StallIO device(memory, fails);
    Recording r(&device);
    r.Track(VideoMedia());
    ASSERT_TRUE(r.Open());
    int taken = 0;
    auto const push = [&] {
      return r.Push(0, Data(taken % kPackets / 2 * 2), true) && ++taken > 0;
    };
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
      std::string const slice = Data(delivered % kPackets / 2 * 2).substr(26);
      EXPECT_EQ(slice, got.data.substr(got.data.size() - slice.size()));
    }
    EXPECT_EQ(taken, delivered);
  }
}

}  // namespace
}  // namespace kestro::test
