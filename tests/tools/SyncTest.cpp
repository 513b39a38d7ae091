// Recordings with syncs, by the command line.
#include "Command.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

using SyncTest = Command;

std::string const kInputs =
    " media/clip25.h264 media/stereo48k.wav media/stereo48k.wav media/mono8k.wav";

TEST_F(SyncTest, ReportsFullReservesAndFaults) {
  std::string const record = "record --sync-interval 0.5" + kInputs;
  fs::create_directories(At("no.avi.sync/x"));
  std::string const full = "--sync in-place --reserve 800 --force -o full.avi";
  Expect(record, {{full, 0, "note: full.avi: the index before the data was full at 0."},
                  {full + " --front-index-only", 1, "the index reaches 0."},
                  {"--sync callback --force -o no.avi", 1, "no.avi.sync: "}});
  EXPECT_GT(fs::file_size(At("full.avi")), 1200000u);
  EXPECT_EQ(Run("verify no.avi").code, 0);

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

}  // namespace
}  // namespace kestro::tool
