// Recordings that are kept playable on the way.
#include "Command.h"
#include "verify/Verify.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

unsigned Little(std::string const& bytes, std::size_t at) {
  unsigned value = 0;
  for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

class SyncTest : public Command {
 protected:
  std::string const _inputs =
      " media/clip25.h264 media/stereo48k.wav media/stereo48k.wav media/mono8k.wav";
};

// No entry of an index in front of the data lies in two sectors, whatever stands ahead of it.
TEST_F(SyncTest, FilesAreThoseOfThePlainMuxer) {
  Write("t.srt", "1\n00:00:00,500 --> 00:00:01,000\ntext\n");
  for (std::string tags : {"", "--isft software", "--strn abcde --junk 3", "--junk 20"})
    for (std::string inputs : {_inputs, " media/clip25.h264 t.srt" + std::string()}) {
      ASSERT_EQ(Run("record --force -o plain.avi" + inputs).code, 0);
      for (std::string mode : {"in-place", "image", "callback"}) {
        SCOPED_TRACE(mode + " " + tags + inputs);
        Result const result = Run("record --force -o s.avi --sync-interval 0.5 --sync " + mode +
                                  " --reserve-time 5 " + tags + inputs);
        if (mode == "callback") {
          EXPECT_EQ(result.code, 2);
          EXPECT_EQ(Run("record --force -o s.avi --sync callback " + tags + inputs).code, 0);
        } else {
          ASSERT_EQ(result.code, 0) << result.err;
          EXPECT_THAT(result.err, HasSubstr("the index has room for "));
          EXPECT_EQ(FileText(At("s.avi")).find("idx1") % 16, 8u);
        }
        for (int track : {0, 1, 2}) EXPECT_EQ(Payload("s.avi", track), Payload("plain.avi", track));
        EXPECT_FALSE(fs::exists(At("s.avi.sync")));
      }
    }
}

TEST_F(SyncTest, FullReservesAndFaultsAreTold) {
  Result const full =
      Run("record --sync in-place --sync-interval 0.5 --reserve 800 -o full.avi" + _inputs);
  EXPECT_EQ(full.code, 1);
  EXPECT_THAT(full.err, HasSubstr("the index reaches 0."));
  EXPECT_THAT(full.err, HasSubstr("--reserve-time"));
  EXPECT_GT(fs::file_size(At("full.avi")), 1200000u);

  fs::create_directories(At("no.avi.sync.new/x"));
  Result const fault = Run("record --sync callback --sync-interval 0.5 -o no.avi" + _inputs);
  EXPECT_EQ(fault.code, 1);
  EXPECT_THAT(fault.err, HasSubstr("no.avi.sync: "));
  EXPECT_EQ(Run("verify no.avi").code, 0);

  // The disk is full before the index is written: what stands beside the file has one.
  Result const cut = Shell("trap '' XFSZ; ulimit -f 1000; " TEST_TOOL
                           " record --sync callback --sync-interval 0.5 -o cut.avi" +
                           _inputs);
  EXPECT_EQ(cut.code, 3);
  EXPECT_THAT(cut.err, HasSubstr("cut.avi.sync is kept"));
  std::string const image = FileText(At("cut.avi.sync"));
  std::size_t const head = image.find("movi") + 4;
  EXPECT_EQ(image.substr(0, head - 12).size() % 16, 8u);
  EXPECT_EQ(FileText(At("cut.avi")).substr(head - 4, 4), "movi");
  ASSERT_EQ(image.substr(head, 4), "idx1");
  EXPECT_EQ(Little(image, head + 4), image.size() - head - 8);
  EXPECT_EQ(Little(image, head + 8 + 8), head);  // the first chunk
  EXPECT_EQ(Run("record --sync callback -o cut2.avi" + _inputs).code, 0);
  fs::rename(At("cut.avi.sync"), At("cut3.avi.sync"));
  EXPECT_EQ(Run("record --sync callback -o cut3.avi" + _inputs).code, 2);
}

// Over the head and behind the data of that moment, each image makes a clean file.
TEST_F(SyncTest, EveryImageMakesACleanFile) {
  Write("t.srt", "1\n00:00:00,100 --> 00:00:00,400\nodd\n");
  Result const run = Shell(TEST_TOOL
                           " record --realtime --duration 1 --sync callback --sync-interval 0.1 "
                           "--strn camera -o s.avi t.srt" +
                           _inputs +
                           " & while kill -0 $!; do ln s.avi.sync $(stat -c %i s.avi.sync).image; "
                           "sleep 0.02; done; wait $!");
  ASSERT_EQ(run.code, 0) << run.err;
  std::string const whole = FileText(At("s.avi"));
  int images = 0;
  for (auto const& entry : fs::directory_iterator(_folder)) {
    if (entry.path().extension() != ".image") continue;
    std::string const image = FileText(entry.path());
    std::size_t const head = image.find("movi") + 4, index = image.size() - head;
    if (index == 0) continue;  // of a file just opened
    std::size_t const end = Little(image, 4) + 8 - index;
    ASSERT_LT(end, whole.size());
    Write("applied.avi",
          image.substr(0, head) + whole.substr(head, end - head) + image.substr(head));
    Findings findings;
    EXPECT_TRUE(Verify(At("applied.avi"), false, findings));
    EXPECT_EQ(findings.Count(Severity::kError) + findings.Count(Severity::kWarning), 0u);
    ++images;
  }
  EXPECT_GT(images, 0);
}

TEST_F(SyncTest, WrongOptions) {
  for (char const* options :
       {"--sync always", "--sync-interval 3", "--reserve 1M", "--sync callback --reserve 1M",
        "--sync image --reserve-time 0", "--sync image --sync-interval 0",
        "--sync image --reserve 3G", "--sync image --index-spill 1",
        "--sync image --set reservedSize=1", "--cache 0"})
    EXPECT_EQ(Run(std::string("record -o x.avi ") + options + _inputs).code, 2) << options;
  EXPECT_EQ(Run("record --cache 16 --realtime --drop --duration 0.2 -o x.avi" + _inputs).code, 0);
}

}  // namespace
}  // namespace kestro::tool
