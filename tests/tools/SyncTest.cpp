// Recordings that are kept playable on the way.
#include <linux/magic.h>

#include <array>

#include "Command.h"
#include "avi/HeadCopy.h"
#include "avi/Index.h"
#include "avi/SlotFile.h"
#include "base/File.h"
#include "recorder/OrdinaryClose.h"
#include "support/FaultIO.h"
#include "support/MemoryIO.h"
#include "support/SystemFault.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

class SyncTest : public Command {
 protected:
  std::string const _inputs =
      " media/clip25.h264 media/stereo48k.wav media/stereo48k.wav media/mono8k.wav";
};

// No entry of an index in front of the data lies in two sectors, whatever stands ahead of it.
TEST_F(SyncTest, FilesAreThoseOfThePlainMuxer) {
  Write("t.srt", "1\n00:00:00,500 --> 00:00:01,000\ntext\n");
  for (std::string inputs : {_inputs, std::string(" media/clip25.h264 t.srt")}) {
    ASSERT_EQ(Run("record --force -o plain.avi" + inputs).code, 0);
    for (std::string tags : {"", "--isft software", "--strn abcde --junk 3", "--junk 20"})
      for (std::string mode :
           {"callback ", "in-place --reserve-time 5 ", "image --reserve-time 5 "}) {
        SCOPED_TRACE(mode + tags + inputs);
        Result const result =
            Run("record --force -o s.avi --sync-interval 0.5 --sync " + mode + tags + inputs);
        ASSERT_EQ(result.code, 0) << result.err;
        if (mode[0] == 'i') {
          EXPECT_THAT(result.err, HasSubstr("the index has room for "));
          EXPECT_EQ(FileText(At("s.avi")).find("idx1") % 16, 8u);
        }
        for (int track : {0, 1, 2}) EXPECT_EQ(Payload("s.avi", track), Payload("plain.avi", track));
        EXPECT_FALSE(fs::exists(At("s.avi.sync")));
      }
  }
}

TEST_F(SyncTest, FullReservesAndFaultsAreTold) {
  std::string const record = "record --sync-interval 0.5" + _inputs;
  fs::create_directories(At("no.avi.sync/x"));
  std::string const full = "--sync in-place --reserve 800 --force -o full.avi";
  Expect(record, {{full, 0, "note: full.avi: the index before the data was full at 0."},
                  {full + " --front-index-only", 1, "the index reaches 0."},
                  {"--sync callback --force -o no.avi", 1, "no.avi.sync: "}});
  EXPECT_GT(fs::file_size(At("full.avi")), 1200000u);
  EXPECT_EQ(Run("verify no.avi").code, 0);

  // The disk is full before the index is written: what stands beside the file has one.
  Result const cut = Shell("trap '' XFSZ; ulimit -f 2000; " TEST_TOOL " " + record +
                           " --sync callback -o cut.avi");
  EXPECT_EQ(cut.code, 3);
  EXPECT_THAT(cut.err, HasSubstr("cut.avi.sync is kept"));
  std::uint64_t kept = 0;
  avi::AviFile const avi(At("cut.avi"));
  for (avi::AviTrack const& track : avi.Tracks()) kept += track.chunks;
  EXPECT_THAT(cut.err, HasSubstr("cut.avi: kept " + std::to_string(kept) + " of "));
  std::string const repair = "repair --image cut.avi.sync cut.avi -o whole.avi";
  Expect("", {{repair, 0, "index of cut.avi.sync"}, {"verify whole.avi", 0, "clean"}});
  fs::remove(At("cut.avi"));
  EXPECT_EQ(Run("record --sync callback -o cut.avi" + _inputs).code, 2);
  fs::rename(At("cut.avi.sync"), At("cut.avi.sync2"));
  EXPECT_EQ(Run("record --sync callback -o cut.avi" + _inputs).code, 2);
}

// What is closed in place or by image.
class OrdinaryTest : public SyncTest {
 protected:
  void SetUp() override {
    SyncTest::SetUp();
    Write("t.srt",
          "1\n00:00:00,500 --> 00:00:01,000\ntext\n\n2\n00:00:01,500 --> 00:00:02,000\nodd\n");
    for (auto const& [name, options] :
         {std::pair("plain.avi", "off"),
          std::pair("front.avi", "in-place --reserve 1600 --front-index-only")})
      EXPECT_LE(Run("record -o " + std::string(name) + " --sync " + options + _all).code, 1);
  }
  // The entries of the last index, with offsets from the first one's.
  std::vector<std::array<base::int64, 4>> LastIndex(std::string const& name) {
    std::vector<std::array<base::int64, 4>> entries;
    avi::AviFile file(At(name));
    avi::ReadEntries(file.Reader(), file.Tree().back(), 0, [&](avi::IndexEntry const& entry) {
      entries.push_back({entry.id, entry.flags, entry.offset, entry.size});
    });
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
      (*entry)[2] -= entries.front()[2];
    return entries;
  }
  // That of front.avi, which lacks entries.
  record::FrontIndex Front() {
    avi::AviFile front(At("front.avi"));
    record::FrontIndex index;
    index.at = static_cast<std::uint64_t>(front.IndexChunk().Payload());
    index.data = FileText(At("front.avi")).find("movi") + 4;
    index.entries = 100;
    using Info = record::TrackInfo;
    index.codecs = {Info::kH264, Info::kPcm, Info::kMjpeg, Info::kText};
    auto const all = LastIndex("plain.avi");
    for (std::size_t i = index.entries; i < all.size(); ++i) index.beyond.push_back(all[i][1] != 0);
    return index;
  }

  std::string const _all = " --fps 25 media/clip25.h264 media/mono8k.wav media/clip15.mjpeg t.srt";
};

// Whatever there was room for, the index after the data is that of the plain muxer. The note of
// verify is that the motion JPEG is shorter.
TEST_F(OrdinaryTest, HasTheIndexOfAPlainFile) {
  auto const index = LastIndex("plain.avi");
  std::string const play = Run("play plain.avi").out, late = Run("play --from 2.6 plain.avi").out;
  ASSERT_GT(index.size(), 200u);
  for (std::string mode : {"in-place", "image"})
    for (std::string reserve : {"16K", "1600", "16"}) {
      SCOPED_TRACE(mode + " " + reserve);
      Result const made = Run("record --force -o s.avi --sync-interval 0.5 --sync " + mode +
                              " --reserve " + reserve + _all);
      EXPECT_EQ(made.code, 0) << made.err;
      EXPECT_EQ(LastIndex("s.avi"), index);
      EXPECT_EQ(avi::AviFile(At("s.avi")).IndexPlace() == avi::AviFile::Index::kFirst,
                reserve == "16K");
      EXPECT_EQ(Run("play s.avi").out, play);
      EXPECT_EQ(Run("play --from 2.6 s.avi").out, late);
      Expect("", {{"verify --deep s.avi", 0, "1 note"}, {"repair --force s.avi -o r.avi", 0, ""}});
      EXPECT_EQ(LastIndex("r.avi"), index);
    }
}

TEST_F(OrdinaryTest, ALargeIndexBecomesPiecesOfJunk) {
  record::FrontIndex const index = Front();
  std::string const closed = FileText(At("front.avi"));
  for (unsigned largest : {64u, 800u, 1584u, 1600u, 1603u, 1604u, 4000u}) {
    SCOPED_TRACE(largest);
    test::MemoryIO file(closed);
    EXPECT_EQ(record::OrdinaryClose(file, index, largest).Run(UINT64_MAX), "");
    Write("s.avi", test::Text(file));
    std::size_t pieces = 0;
    avi::AviFile const made(At("s.avi"));
    for (avi::Chunk const& chunk : made.Tree()) {
      if (chunk.offset < static_cast<base::int64>(index.at) - 8) continue;
      EXPECT_EQ(chunk.depth, 1);
      if (chunk.id != base::Convert4("JUNK")) break;
      EXPECT_LE(chunk.size, largest);
      ++pieces;
    }
    EXPECT_EQ(pieces == 1, largest >= 1604);
    EXPECT_EQ(LastIndex("s.avi"), LastIndex("plain.avi"));
    Expect("verify", {{"s.avi", 0, "1 note"}});
  }
}

// Once, or from then on: what cannot be written leaves the file as it was, or as playable as it
// was.
TEST_F(OrdinaryTest, FaultsLeaveTheFileAsItWas) {
  using Fault = test::FaultIO::Fault;
  record::FrontIndex const index = Front();
  std::string const closed = FileText(At("front.avi"));
  std::string const before = Run("play front.avi").out, after = Run("play plain.avi").out;
  for (auto const& op : {test::FaultIO::kWrite, test::FaultIO::kFlush})
    for (bool forever : {false, true})
      for (int nth = 1, met = 1; met > 0; ++nth) {
        SCOPED_TRACE(testing::Message() << op << " " << nth << (forever ? " on" : ""));
        test::MemoryIO file(closed);
        test::FaultIO faulty(file);
        faulty.Fail(Fault{op, nth, forever, forever ? 0u : 5u, ENOSPC});
        std::string const reason = record::OrdinaryClose(faulty, index, 800).Run(UINT64_MAX);
        met = faulty.Failures();
        EXPECT_EQ(reason.empty(), met == 0);
        if (met > 0) {
          EXPECT_THAT(reason, HasSubstr(std::strerror(ENOSPC)));
        }
        if (met > 0 && !forever) {
          EXPECT_TRUE(test::Text(file) == closed);
        }
        if (!forever) continue;
        Write("s.avi", test::Text(file));
        std::string const play = Run("play s.avi").out;
        EXPECT_TRUE(play == before || play == after);
        Expect("", {{"repair --force s.avi -o r.avi", 0, ""}});
        EXPECT_EQ(LastIndex("r.avi"), LastIndex("plain.avi"));
      }
}

// Where there is no room for a second index, and where the file is not the one that was written.
TEST_F(OrdinaryTest, RefusesWhatDoesNotFit) {
  record::FrontIndex const known = Front();
  std::string const closed = FileText(At("front.avi"));
  auto const bytes = 8 + 16 * (known.entries + known.beyond.size());
  auto missing = known, other = known;
  missing.beyond.pop_back();
  other.data += 2;
  struct {
    record::FrontIndex const& index;
    std::uint64_t free;
    char const* reason;
  } const table[] = {{known, bytes - 1, "no space"},
                     {known, bytes, ""},
                     {missing, UINT64_MAX, "cannot be written"},
                     {other, UINT64_MAX, "not where they were expected"}};
  for (auto const& row : table) {
    test::MemoryIO file(closed);
    std::string const reason = record::OrdinaryClose(file, row.index).Run(row.free);
    EXPECT_THAT(reason, HasSubstr(row.reason));
    EXPECT_EQ(test::Text(file) == closed, *row.reason != 0) << row.reason;
  }

  // One chunk that fills the file nearly up to 4 GiB - 1.
  for (unsigned const end : {UINT32_MAX - 25, UINT32_MAX - 23}) {
    std::string const head =
        avi::Words({base::Convert4("RIFF"), end - 8, base::Convert4("AVI "), base::Convert4("idx1"),
                    16, base::Convert4("00dc"), 0, 48, end - 56, base::Convert4("LIST"), end - 44,
                    base::Convert4("movi"), base::Convert4("00dc"), end - 56});
    Write("s.avi", head);
    fs::resize_file(At("s.avi"), end);
    base::FileIO file(At("s.avi").c_str(), "r+b");
    record::FrontIndex index;
    index.at = 20;
    index.data = 48;
    index.entries = 1;
    bool const fits = end <= UINT32_MAX - 24;
    EXPECT_EQ(record::OrdinaryClose(file, index).Run(UINT64_MAX),
              fits ? "" : "it would pass 4 GiB");
    EXPECT_EQ(file.Size(), fits ? end + 24 : end);
  }
}

// The images of one recording, which outgrow their slots twice.
class SlotTest : public SyncTest {
 protected:
  void SetUp() override {
    SyncTest::SetUp();
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

// Only a file that is made takes the barrier of the whole file system, and no size changes after.
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

// Of an image whose head changes and whose index grows, only that is written; of one that shrinks,
// what differs from the slot.
TEST_F(SlotTest, WhatASlotHoldsIsNotWrittenAgain) {
  struct Counting : avi::SlotFile::Folder {
    struct File : base::FileIO {
      File(char const* path, std::size_t& written) : FileIO(path, "rwbc"), written(written) {}
      unsigned Write(void const* data, unsigned size) override {
        written += size;
        return FileIO::Write(data, size);
      }
      std::size_t& written;
    };
    std::unique_ptr<base::IO> Create(std::string const& path) override {
      return std::make_unique<File>(path.c_str(), written);
    }
    std::size_t written = 0;
  } folder;
  avi::SlotFile slots(_path, 1 << 20, &folder);
  int number = 0;
  for (std::size_t size : {100000, 100300, 100600, 100900, 300000, 300000, 50, 200000, 100, 200000})
    for (int slot : {0, 1}) {
      SCOPED_TRACE(testing::Message() << slot << " " << size);
      std::vector<unsigned char> bytes(size);
      for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * i >> 8);
      bytes[9] = static_cast<unsigned char>(++number);
      folder.written = 0;
      EXPECT_TRUE(slots.Store(bytes.data(), static_cast<unsigned>(size)));
      if (number > 2 && number <= 8) {
        EXPECT_LE(folder.written, 16u + 3 * 4096);
      }
      avi::SlotFile::Image newest;
      test::MemoryIO file(FileText(_path));
      EXPECT_TRUE(avi::SlotFile::Read(file, newest));
      EXPECT_TRUE(newest.bytes == bytes);
    }
}

// Whatever fails: what was stored last is still there, and the next image is stored.
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
          // What could not be made durable may be there all the same.
          int const newest = Newest();
          EXPECT_TRUE(newest == bytes || (fails && newest == last)) << newest;
          last = newest;
        }
        met = fault.Failures();
        EXPECT_TRUE(slots.Remove());
      }
}

// No damage gives back another image than one of the two.
TEST_F(SlotTest, DamageIsFound) {
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

TEST_F(SyncTest, WrongOptions) {
  for (std::string options :
       {"--sync always", "--sync-interval 3", "--reserve 1M", "--sync callback --reserve 1M",
        "--sync image --reserve-time 0", "--sync image --sync-interval 0",
        "--sync image --reserve 3G", "--sync image --index-spill 1",
        "--sync image --set reservedSize=1", "--front-index-only",
        "--sync callback --front-index-only", "--cache 0", "--sync callback --reserve-time 5"})
    EXPECT_EQ(Run("record -o x.avi " + options + _inputs).code, 2) << options;
  EXPECT_EQ(Run("record --cache 16 --realtime --drop --duration 0.2 -o x.avi" + _inputs).code, 0);
}

}  // namespace
}  // namespace kestro::tool
