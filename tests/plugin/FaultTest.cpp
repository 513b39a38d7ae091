// Recording to files on failing disks, and playing them: each system call that can fail does so in
// turn. Failing streams are fuzzed.
#include <gmock/gmock.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "base/File.h"
#include "stream/PacketQueue.h"
#include "support/Fakes.h"
#include "support/FileLayout.h"
#include "support/Playing.h"
#include "support/SystemFault.h"

namespace kestro::test {
namespace {

namespace fs = std::filesystem;

enum { kPlain, kIndexFirst, kSpill, kQueue, kInPlace, kImage, kCallback, kWays };
constexpr unsigned kHeader = 1028, kReserve = 8192;
constexpr int kPackets = 120;  // pictures of 20 KB and audio in turn: five blocks of the writer
constexpr int kMany = 9000;    // followed by small ones: index entries are spilled by thousands

// Each packet ends with its number.
std::string Data(int i) {
  std::size_t const size = i >= kPackets ? 20 : i % 2 == 0 ? 20000 : 195;
  std::string const payload = std::string(size, 'p') + std::to_string(100000 + i);
  return i % 2 == 0 ? KeyFrame(payload) : payload;
}
// The size of a packet's chunk.
int64 ChunkBytes(int i) {
  std::size_t const size = Data(i).size() - (i % 2 == 0 ? 6 : 0);
  return static_cast<int64>(8 + size + size % 2);
}

void Ignore(unsigned, unsigned, unsigned char const*, unsigned, unsigned) {}

struct Outcome {
  std::vector<int> taken;  // the packets that were not refused
  int errors = 0, warnings = 0;
  bool check = true, checkIO = true;  // when the first packet was refused, else at the end
  bool closed = true;

  bool Reported() const { return errors > 0 && !check && !checkIO; }
  bool Silent() const { return errors + warnings == 0 && check && closed; }
};

Outcome Record(int way, std::string const& path, int packets = 0) {
  Outcome o;
  if (packets == 0) packets = way == kSpill ? kMany : way == kIndexFirst ? 2000 : kPackets;
  base::ConsoleCapture console;
  testing::internal::CaptureStdout();
  Shape shape;
  shape.indexFirst = way == kIndexFirst || way == kImage;
  Tags tags(shape);
  {
    Recording r(nullptr, way < kInPlace ? "AviMuxer-avi-muxer" : "VFIAviMuxer-avi-muxer-vfi");
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
    r.Track(VideoMedia()).Track(AudioMedia());
    auto const queue = Make<stream::PacketQueue>("packet-queue");
    for (std::size_t i = 0; way == kQueue && i < 2; ++i) {
      auto const track = queue->AddTrack();
      EXPECT_TRUE(IPort::Link(*track.output, *r.ports[i]));
      EXPECT_TRUE(track.input->Offer(r.media[i].get()));
      r.ports[i] = track.input;
    }
    EXPECT_TRUE(r.Open());
    EXPECT_TRUE(queue->StatusChange(IStatus::kRunning));
    for (int i = 0; i < packets; ++i) {
      bool const taken = r.Push(i % 2, Data(i), true, i / 2 * 40);
      if (taken) o.taken.push_back(i);
      if (!taken && o.check) o.check = m.Check(), o.checkIO = m.CheckIO();
      EXPECT_TRUE(way == kQueue || taken == m.CheckIO()) << "packet " << i;
    }
    static_cast<void>(queue->StatusChange(IStatus::kClosed));  // false after a fault
    base::uint64 dropped = 0;
    EXPECT_TRUE(queue->Get("dropped", dropped));
    o.taken.resize(o.taken.size() - dropped - !queue->Check());  // one was refused by the muxer
    o.closed = r.Close();
    EXPECT_TRUE(r.Close()) << "a second time";
    EXPECT_TRUE(m.Close()) << "a second time";
    if (o.check) o.check = m.Check(), o.checkIO = m.CheckIO();
    for (auto const& message : r.messages) ++(message[0] == 'e' ? o.errors : o.warnings);
  }
  unsigned char first = 9;
  EXPECT_TRUE(tags.object->Get("idx1_first", first));
  EXPECT_EQ(first, shape.indexFirst);
  testing::internal::GetCapturedStdout();
  return o;
}

// The numbers of the packets that a file plays, whose data must be right.
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
    EXPECT_GE(size, slice.size()) << i;
    EXPECT_EQ(got.data.substr(size - slice.size()), slice) << i;
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
    if (base::IClass::Find("VFIAviMuxer-avi-muxer-vfi", true) != nullptr) ways = kWays;
    base::File::Mount('F', folder.c_str());
    descriptors = Descriptors();
    for (int way = kPlain; way < ways; ++way) {
      EXPECT_TRUE(Record(way, path).Silent());
      whole[way] = Content();
    }
  }
  ~Faults() override {
    std::printf("fault points: %d injected, %d reported\n", injected, reported);
    EXPECT_EQ(injected, reported);
    EXPECT_EQ(descriptors, Descriptors());
    base::File::Mount('F', nullptr);
    fs::remove_all(folder);
  }

  std::string Content() const { return FileText(path); }
  // The file must hold what was taken: after a failed flush what was synced; where nothing can be
  // written any more, at least what was stored before.
  void ExpectKept(int way, Outcome const& o, bool flush, bool dead) {
    std::string const file = Content();
    std::size_t const start = whole[way].find("movi") + 4, index = whole[way].rfind("idx1");
    std::size_t const end = std::min(index > start ? index : whole[way].size(), file.size());
    if (dead && end > start) {
      EXPECT_EQ(0, file.compare(start, end - start, whole[way], start, end - start));
    }
    bool const syncs = way == kInPlace || way == kImage;
    if ((dead || flush) && !syncs) return;
    std::vector<int> all = o.taken;
    all.push_back(all.empty() ? 0
                              : all.back() + 1);  // the packet that met the fault may be there too
    std::vector<int> const got = Delivered(file);
    ASSERT_LE(got.size(), all.size());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), all.begin()));
    std::size_t const unsynced = !dead && !flush ? 0 : way == kImage ? 120 : 50;
    EXPECT_GE(got.size() + unsynced, o.taken.size());
  }

  // Counts faults that must be reported, and those that were.
  void Point(bool must, bool noticed) {
    injected += must;
    reported += noticed;
  }

  int injected = 0, reported = 0;
  std::string const folder, path;
  int ways = kInPlace;       // of this build
  std::string whole[kWays];  // without faults
  int descriptors;
};

// The calls on each file that the element opens itself.
TEST_F(Faults, OfTheSystemAreReported) {
  enum Report { kError, kLoss, kWarning, kNothing };
  std::string const avi = "/r.avi", spill = ".kestro";
  struct Case {
    Call call;
    std::string file;
    int error;  // negative: after a part of the data
    Report report;
  } const cases[] = {
      {Call::kOpen, avi, EACCES, kError},     {Call::kWrite, avi, -ENOSPC, kError},
      {Call::kWrite, avi, EIO, kError},       {Call::kTruncate, avi, EIO, kError},
      {Call::kWrite, avi, EINTR, kNothing},   {Call::kWrite, avi, SystemFault::kPart, kNothing},
      {Call::kSync, avi, EIO, kError},        {Call::kSync, avi, EINTR, kNothing},
      {Call::kSyncAll, avi, EIO, kError},  // on FAT
      {Call::kClose, avi, EIO, kError},       {Call::kClose, avi, EINTR, kNothing},
      {Call::kOpen, folder, EIO, kError},     {Call::kOpen, folder, EACCES, kNothing},
      {Call::kSync, folder, EIO, kError},     {Call::kClose, folder, EIO, kNothing},
      {Call::kOpen, spill, EACCES, kWarning}, {Call::kWrite, spill, -ENOSPC, kWarning},
      {Call::kRead, spill, EIO, kLoss},       {Call::kRead, spill, SystemFault::kPart, kNothing},
      {Call::kClose, spill, EIO, kNothing},
  };
  auto const fails = [&](Case const& c, int way, bool forever, int nth) {
    SCOPED_TRACE(testing::Message() << int(c.call) << " of " << c.file << " " << c.error << ", way "
                                    << way << ", call " << nth << " " << forever);
    fs::remove(path);
    FileSystem const seen(c.call == Call::kSyncAll ? MSDOS_SUPER_MAGIC : 0);
    SystemFault const fault(c.call, c.file, nth, forever, c.error);
    Outcome const o = Record(way, path);
    EXPECT_EQ(descriptors, Descriptors());
    if (fault.Failures() == 0) return false;
    if (c.report != kError) {
      // A last batch that could not be spilled is still in memory, and reading is tried twice.
      bool const again = nth > 1 || (c.report == kLoss && !forever);
      bool const good = c.report == kNothing || (again && o.Silent());
      bool const loss = c.report == kLoss && !good, warning = !good && !loss;
      Point(!good, !o.Silent());
      EXPECT_EQ(std::tuple(o.errors, o.warnings, o.check, o.checkIO, o.closed),
                std::tuple(loss, loss ? o.warnings : warning, !loss, true, true));
      EXPECT_TRUE(loss || whole[way] == Content()) << "another file";
      return true;
    }
    Point(true, o.Reported());
    EXPECT_TRUE(c.call != Call::kClose || !o.closed);
    EXPECT_EQ(fault.Failures(), o.errors);
    bool const sync = c.call == Call::kSync || c.call == Call::kSyncAll;
    bool const flush = sync && c.file == avi && nth > 1;
    if (forever && !flush && c.call != Call::kWrite && c.call != Call::kClose) return true;
    ExpectKept(way, o, flush, c.call == Call::kWrite && forever);
    return true;
  };
  // Every way of recording, each call until none fails any more; a part of them in slow builds.
  int turn = 0;
  for (auto const& c : cases)
    for (int way = kPlain; way < ways; ++way)
      for (bool forever : {false, true})
        if (turn++ % TEST_STEP == 0)
          for (int nth = 1; fails(c, way, forever, nth);) ++nth;
}

// Wherever one byte is missing for a chunk and the index, the file ends with the chunk before it
// and has its index.
TEST_F(Faults, FullDiskEndsWithAWholeFile) {
  auto const ignored = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  for (int way = kPlain; way < ways; ++way) {
    bool const first = way == kIndexFirst || way == kInPlace || way == kImage;
    int64 end = static_cast<int64>(whole[way].find("movi")) + 4;
    std::vector<int> fit;
    for (int n = 0; n < kPackets; fit.push_back(n++)) {
      end += ChunkBytes(n);
      if (n > 4 && n % 9 != 0) continue;
      SCOPED_TRACE(testing::Message() << "way " << way << ", " << n << " chunks");
      rlimit const small{static_cast<rlim_t>(end + (first ? 0 : 8 + 16 * (n + 1)) - 1),
                         limit.rlim_max};
      setrlimit(RLIMIT_FSIZE, &small);
      Point(true, Record(way, path).Reported());
      setrlimit(RLIMIT_FSIZE, &limit);
      EXPECT_EQ(fit, Delivered(Content()));
    }
  }
  std::signal(SIGXFSZ, ignored);
}

// By a message or a short packet, unless nothing is missing.
TEST_F(Faults, OfReadingAreReported) {
  constexpr std::size_t kFew = 20;
  ASSERT_TRUE(Record(kPlain, path, kFew).Silent());
  MemoryIO healthy(Content());
  Playing reference(&healthy);
  ASSERT_TRUE(reference.Open());
  auto const whole = reference.All();
  ASSERT_EQ(kFew, whole.size());
  std::pair<char const*, bool> const players[] = {
      {"AviDemuxer-avi-demuxer", false}, {"CusAviDemuxer", false}, {"CusAviDemuxer", true}};
  std::pair<Call, int> const cases[] = {{Call::kOpen, EIO},   {Call::kRead, EIO},
                                        {Call::kRead, -EIO},  {Call::kRead, SystemFault::kPart},
                                        {Call::kRead, EINTR}, {Call::kClose, EIO}};
  for (auto const& [alias, preload] : players)
    for (auto const& [call, error] : cases)
      for (int nth = 1, last = 0; last < 2 && base::IClass::Find(alias, true) != nullptr; ++nth) {
        bool const forever = last == 1;  // once each call alone has failed
        SCOPED_TRACE(testing::Message() << alias << preload << ", call " << nth << " of kind "
                                        << int(call) << " " << error << forever);
        SystemFault const fault(call, "/r.avi", nth, forever, error);
        base::ConsoleCapture console;
        bool noticed, complete;
        {
          Playing p(nullptr, 0, alias);
          p.demuxer->Set("path", path);
          p.demuxer->Set("preloadsz", int64{100000});
          Messages messages(*p.demuxer);
          noticed = preload && !p.demuxer->Set("vlcPreload", true);
          noticed = !p.Open() || noticed;
          auto const media = p.outputs[0]->Media();
          bool const published = media && !media->ExtraData()->empty();
          auto const all = p.All();
          complete = published && all == whole;
          for (std::size_t i = 0; i < std::min(all.size(), kFew); ++i)
            noticed |= all[i].data.size() < whole[i].data.size();
          noticed = p.failures + messages.Count() > 0 || noticed;
          noticed = !p.Close() || noticed;
          EXPECT_TRUE(p.Close()) << "a second time";
        }
        EXPECT_EQ(descriptors, Descriptors());
        bool const good = error == SystemFault::kPart || error == EINTR ||
                          (call == Call::kRead && complete && !noticed);
        if (fault.Failures() > 0) Point(!good, noticed);
        EXPECT_TRUE(fault.Failures() == 0 || complete || !good);
        if (fault.Failures() == 0) ++last, nth = 0;
      }
}

}  // namespace
}  // namespace kestro::test
