// Recordings with syncs: their options, and the index that is added after the data at the end.
#include "recorder/OrdinaryClose.h"

#include <array>

#include "Command.h"
#include "avi/HeadCopy.h"
#include "avi/Index.h"
#include "base/File.h"
#include "support/FaultIO.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

using SyncTest = Command;

std::string const kInputs =
    " media/clip25.h264 media/stereo48k.wav media/stereo48k.wav media/mono8k.wav";

TEST_F(SyncTest, ReportsFullReservesAndFaults) {
  std::string const record = "record --sync-interval 0.5" + kInputs;
  std::string const full = "--sync in-place --reserve 800 --force -o full.avi";
  Expect(record, {{full, 0, "note: full.avi: the index before the data was full at 0."},
                  {full + " --front-index-only", 1, "the index reaches 0."}});
  EXPECT_GT(fs::file_size(At("full.avi")), 1200000u);

  // The disk is full before the index is written: the side file has one.
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
  EXPECT_EQ(Run("record --sync callback -o cut.avi" + kInputs).code, 2);
  fs::rename(At("cut.avi.sync"), At("cut.avi.sync2"));
  EXPECT_EQ(Run("record --sync callback -o cut.avi" + kInputs).code, 2);
}

TEST_F(SyncTest, RefusesWrongOptions) {
  for (std::string options :
       {"--sync always", "--sync-interval 3", "--reserve 1M", "--sync callback --reserve 1M",
        "--sync image --reserve-time 0", "--sync image --sync-interval 0",
        "--sync image --reserve 3G", "--sync image --index-spill 1",
        "--sync image --set reservedSize=1", "--front-index-only",
        "--sync callback --front-index-only", "--cache 0", "--sync callback --reserve-time 5"})
    EXPECT_EQ(Run("record -o x.avi " + options + kInputs).code, 2) << options;
  EXPECT_EQ(Run("record --cache 16 --realtime --drop --duration 0.2 -o x.avi" + kInputs).code, 0);
}

class OrdinaryTest : public Command {
 protected:
  void SetUp() override {
    Command::SetUp();
    Write("t.srt",
          "1\n00:00:00,500 --> 00:00:01,000\ntext\n\n2\n00:00:01,500 --> 00:00:02,000\nx\n");
    Expect("record" + _all,
           {{"-o plain.avi", 0, ""},
            {"-o front.avi --sync in-place --reserve 1600 --front-index-only", 1, ""}});
  }
  // The entries of the last index, with offsets relative to the first one.
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
  // The index of front.avi, which lacks entries.
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

// Whatever the room before the data, and what precedes it there: no index entry lies in two
// sectors. The note of verify: the motion JPEG track is shorter.
TEST_F(OrdinaryTest, AddsTheIndexOfAPlainFile) {
  auto const index = LastIndex("plain.avi");
  std::string const play = Run("play plain.avi").out, late = Run("play --from 2.6 plain.avi").out;
  ASSERT_GT(index.size(), 200u);
  for (std::string mode : {"in-place", "image"})
    for (std::string room : {"--reserve 16K", "--reserve-time 5 --isft software",
                             "--reserve-time 5 --strn abcde --junk 3", "--reserve-time 5 --junk 20",
                             "--reserve 1600", "--reserve 16"}) {
      SCOPED_TRACE(mode + " " + room);
      Result const made =
          Run("record --force -o s.avi --sync-interval 0.5 --sync " + mode + " " + room + _all);
      EXPECT_EQ(made.code, 0) << made.err;
      EXPECT_THAT(made.err, HasSubstr("the index has room for "));
      EXPECT_EQ(LastIndex("s.avi"), index);
      avi::AviFile const avi(At("s.avi"));
      bool const first = avi.IndexPlace() == avi::AviFile::Index::kFirst;
      EXPECT_EQ(first, room.find("16K") != room.npos || room.find("time") != room.npos);
      EXPECT_TRUE(!first || avi.IndexChunk().Payload() % 16 == 0) << avi.IndexChunk().Payload();
      EXPECT_EQ(Run("play s.avi").out, play);
      EXPECT_EQ(Run("play --from 2.6 s.avi").out, late);
      Expect("", {{"verify --deep s.avi", 0, "1 note"}, {"repair --force s.avi -o r.avi", 0, ""}});
      EXPECT_EQ(LastIndex("r.avi"), index);
    }
}

TEST_F(OrdinaryTest, ALargeOldIndexBecomesPiecesOfJunk) {
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

// Where all writes fail from then on, it is as after a power cut.
TEST_F(OrdinaryTest, FaultsLeaveTheFileAsItWas) {
  using Fault = test::FaultIO::Fault;
  record::FrontIndex const index = Front();
  std::string const closed = FileText(At("front.avi"));
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
        EXPECT_THAT(reason, HasSubstr(met == 0 ? "" : std::strerror(ENOSPC)));
        EXPECT_TRUE(met == 0 || forever || test::Text(file) == closed);
      }
}

// And changes nothing.
TEST_F(OrdinaryTest, RefusesFullDevicesAndOtherFiles) {
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
  } const table[] = {{known, bytes - 1, "no free space"},
                     {known, bytes, ""},
                     {missing, UINT64_MAX, "cannot be written"},
                     {other, UINT64_MAX, "not at the expected offsets"}};
  for (auto const& row : table) {
    test::MemoryIO file(closed);
    std::string const reason = record::OrdinaryClose(file, row.index).Run(row.free);
    EXPECT_THAT(reason, HasSubstr(row.reason));
    EXPECT_EQ(test::Text(file) == closed, *row.reason != 0) << row.reason;
  }

  // One chunk that almost fills 4 GiB - 1.
  for (unsigned const end : {UINT32_MAX - 25, UINT32_MAX - 23}) {
    SCOPED_TRACE(end);
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
              fits ? "" : "the file would exceed 4 GiB");
    EXPECT_EQ(file.Size(), fits ? end + 24 : end);
  }
}

}  // namespace
}  // namespace kestro::tool
