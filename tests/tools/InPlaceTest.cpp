// kestro-avi repair --in-place.
#include "repair/InPlace.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <random>

#include "Command.h"
#include "cli/Errors.h"
#include "support/MemoryStorage.h"

namespace kestro::tool {
namespace {

using testing::HasSubstr;

constexpr char const* kModes[] = {"off",
                                  "in-place --reserve 16K",
                                  "in-place --reserve 1600",
                                  "callback",
                                  "image --reserve 16K",
                                  "image --reserve 1600",
                                  "in-place --reserve 16K --front-index-only"};

class InPlaceTest : public Command {
 protected:
  void SetUp() override {
    Command::SetUp();
    Write("t.srt",
          "1\n00:00:00,500 --> 00:00:01,000\ntext\n\n2\n00:00:01,500 --> 00:00:02,000\nodd\n");
  }
  // A closed recording.
  std::string Record(std::string const& mode) {
    std::string const interval = mode == "off" ? "" : " --sync-interval 0.5";
    EXPECT_LE(Run("record --force -o s.avi --sync " + mode + interval + _all).code, 1);
    return FileText(At("s.avi"));
  }
  // A recording in place whose headers, and the index before the data, are as at a sync.
  std::string Synced(unsigned entries) {
    std::string bytes = Record("in-place --reserve 1600 --front-index-only");
    std::size_t const index = bytes.find("idx1") + 8, movi = bytes.find("movi"),
                      from = std::size_t{entries} * 16;
    unsigned const end = Get(bytes, index + from + 8);
    bytes.replace(index + from, 1600 - from, 1600 - from, '\0');
    Put(bytes, 4, end - 8);
    Put(bytes, movi - 4, end - static_cast<unsigned>(movi));
    return bytes;
  }
  // The packets that the index names: ids, key flags and payloads.
  std::vector<std::string> Packets(std::string const& name) {
    std::string const bytes = FileText(At(name));
    std::vector<std::string> packets;
    avi::AviFile avi(At(name));
    avi.ForEachEntry([&](avi::IndexEntry const& entry) {
      packets.push_back(
          avi::CodeText(entry.id) + std::to_string(entry.flags) +
          bytes.substr(static_cast<std::size_t>(entry.offset) + 8, avi.DataSize(entry)));
    });
    return packets;
  }
  // Mends a file as the copying repair does. The repaired file is clean and stays as it is.
  void ExpectMended(std::string const& name) {
    Result const copied = Run("repair --force -o copy.avi " + name);
    Result const mended = Run("repair --in-place " + name);
    EXPECT_EQ(mended.code, copied.code) << mended.err << mended.out;
    ASSERT_LE(mended.code, 1);
    EXPECT_EQ(mended.out.substr(mended.out.find("; lost")).substr(0, 9),
              copied.out.substr(copied.out.find("; lost")).substr(0, 9));
    auto const kept = Packets(name), wanted = Packets("copy.avi");
    EXPECT_EQ(kept.size(), wanted.size());
    EXPECT_TRUE(kept == wanted);
    Result const verified = Run("verify --deep " + name);
    EXPECT_EQ(verified.code, 0) << verified.out;
    EXPECT_FALSE(fs::exists(At(name + ".sync")));
    std::string const bytes = FileText(At(name));
    Expect("repair --in-place", {{name, 0, (name + ": whole\n").c_str()}});
    EXPECT_TRUE(FileText(At(name)) == bytes);
  }

  std::string const _all = " --fps 25 media/clip25.h264 media/mono8k.wav media/clip15.mjpeg t.srt";
};

TEST_F(InPlaceTest, MendsWhatIsCutAnywhere) {
  std::mt19937 random(3);
  for (char const* mode : kModes) {
    std::string const closed = Record(mode);
    auto const time = fs::last_write_time(At("s.avi"));
    Expect("repair --in-place", {{"s.avi", 0, "s.avi: whole"}});
    EXPECT_TRUE(FileText(At("s.avi")) == closed && fs::last_write_time(At("s.avi")) == time)
        << mode;
    std::size_t const begin = closed.find("movi") + 4000, end = closed.size();
    for (int i = 0; i < 8; ++i) {
      // The last ones within the index, where there is one after the data.
      std::size_t const size = i < 6 ? begin + random() % (end - begin) : end - 1 - i * 7;
      SCOPED_TRACE(testing::Message() << mode << ", " << size << " of " << end);
      Write("in.avi", closed.substr(0, size));
      ExpectMended("in.avi");
    }
  }
}

// Damage in data that no index names is passed over as a copy does.
TEST_F(InPlaceTest, KeepsWhatFollowsDamage) {
  std::mt19937 random(5);
  std::string plain = Record("off");
  plain.resize(plain.rfind("idx1"));
  std::string const synced = Synced(40);
  int mended = 0;
  for (int i = 0; i < 40; ++i) {
    std::string bytes = i % 2 == 0 ? plain : synced;
    std::size_t const from = 4000 + (i % 2 == 0 ? bytes.find("movi") : Get(bytes, 4) + 8);
    bytes.resize(bytes.size() - random() % 20000);
    std::size_t const at = from + random() % (bytes.size() - from - 4096);
    if (i % 4 < 2)
      for (int n = 0; n < 600; ++n) bytes[at + random() % 600] = static_cast<char>(random());
    else
      bytes.replace(at / 512 * 512, 1024, 1024, '\0');
    SCOPED_TRACE(testing::Message() << i << ": damage at " << at);
    Write("in.avi", bytes);
    Result const result = Run("repair --in-place in.avi");
    if (result.code == 4) {
      EXPECT_TRUE(FileText(At("in.avi")) == bytes);
      continue;
    }
    ++mended;
    auto const packets = Packets("in.avi");
    Write("in.avi", bytes);
    Run("repair --force -o copy.avi in.avi");
    EXPECT_TRUE(packets == Packets("copy.avi"));
    EXPECT_EQ(Run("repair --in-place in.avi").code, result.code);
    EXPECT_THAT(Run("verify in.avi").out, testing::Not(HasSubstr("error")));
  }
  EXPECT_GT(mended, 30);
}

TEST_F(InPlaceTest, CompletesTheIndexBeforeTheDataWhereItFits) {
  for (unsigned packets : {90u, 100u, 101u}) {
    SCOPED_TRACE(packets);
    std::string bytes = Synced(30);
    std::string const closed = Record("off");
    std::size_t const shift = bytes.find("movi") - closed.find("movi");
    std::size_t const end = Get(closed, closed.rfind("idx1") + 8 + packets * 16 + 8) + shift;
    // Entries of which those before are lost.
    bytes.replace(bytes.find("idx1") + 8 + 50 * 16, 160, 160, 'x');
    Write("in.avi", bytes.substr(0, end));
    ExpectMended("in.avi");
    bool const fits = packets <= 100;
    EXPECT_EQ(fs::file_size(At("in.avi")), fits ? end : end + 8 + 16 * packets);
    EXPECT_EQ(avi::AviFile(At("in.avi")).IndexPlace() == avi::AviFile::Index::kFirst, fits);
  }
}

TEST_F(InPlaceTest, RefusesWhatItCannotMendAndChangesNothing) {
  std::string const plain = Record("off"), cut = plain.substr(0, 100000), synced = Synced(40);
  std::size_t const index = synced.find("idx1") + 8;
  Write("busy.avi", cut);
  Write("cam-007.avi", cut);
  int const lock = open(At(".cam-%03d.avi.lock").c_str(), O_RDWR | O_CREAT, 0666);
  EXPECT_EQ(flock(lock, LOCK_EX), 0);
  int const writer = open(At("busy.avi").c_str(), O_WRONLY);
  fs::create_directory(At("dir.avi"));
  fs::create_symlink("loop.avi", At("loop.avi"));
  std::string astray = synced, large = cut, header = synced;
  Put(astray, index + 16 * 7 + 8, 4711);
  large.resize(8 << 20);
  Put(large, plain.find("movi") + 8, 7 << 20);
  header.replace(0, 512, 512, 'x');
  std::string const parts = plain + std::string("RIFF\4\0\0\0AVIX", 12);
  std::string shown = plain;
  Put(shown, plain.rfind("idx1") + 8 + 16 * 7 + 8, 4711);
  struct {
    char const* name;
    std::string bytes;
    int code;
    char const* said;
  } const table[] = {{"none.avi", "", 3, "none.avi: No such file"},
                     {"dir.avi", "", 3, "is a directory"},
                     {"loop.avi", "", 3, "symbolic links"},
                     {"busy.avi", "", 4, "is still being recorded"},
                     {"cam-007.avi", "", 4, "is still being recorded"},
                     {"parts.avi", parts, 4, "several RIFF parts"},
                     {"foreign.avi", Replaced(cut, "H264", "XVID"), 4, "not a recording of this"},
                     {"astray.avi", astray, 4, "points to an earlier chunk; make a copy with"},
                     {"shown.avi", shown, 4, "its index at offset"},
                     {"large.avi", large, 4, "too large to be mended in place"},
                     {"header.avi", header, 4, "its header is damaged; make a copy"},
                     {"empty.avi", cut.substr(0, plain.find("movi") + 4), 4, "no complete packet"},
                     {"short.avi", cut.substr(0, 200), 4, "ends within its header"},
                     {"text.avi", "no film", 4, "not an AVI file"}};
  std::string all = "repair --in-place";
  for (auto const& row : table) {
    if (!row.bytes.empty()) Write(row.name, row.bytes);
    Expect("repair --in-place", {{row.name, row.code, row.said}});
    if (!row.bytes.empty()) {
      EXPECT_TRUE(FileText(At(row.name)) == row.bytes) << row.name;
    }
    all += std::string(" ") + row.name;
  }
  EXPECT_TRUE(FileText(At("busy.avi")) == cut && FileText(At("cam-007.avi")) == cut);
  close(lock);
  close(writer);
  // The other files are mended nevertheless.
  Result const result = Run(all + " --json");
  EXPECT_EQ(result.code, 4);
  auto const files = nlohmann::json::parse(result.out)["files"];
  for (std::size_t i = 0; i < std::size(table); ++i) {
    bool const free = table[i].bytes.empty() && i > 2;
    EXPECT_EQ(files[i]["file"], table[i].name);
    EXPECT_EQ(files[i].contains("error"), !free) << files[i];
    if (free) {
      EXPECT_EQ(files[i]["kept"]["packets"], Packets(table[i].name).size());
    }
  }
  for (char const* option : {"-o x.avi", "--image x", "--fps 25", "--force"})
    EXPECT_EQ(Run("repair --in-place busy.avi " + std::string(option)).code, 2) << option;
  EXPECT_EQ(Run("repair busy.avi cam-007.avi -o x.avi").code, 2);
}

TEST_F(InPlaceTest, RemovesTheSideFileOfItsRecordingOnly) {
  std::string const more = " media/stereo48k.wav media/stereo48k.wav";
  Result const cut = Shell("trap '' XFSZ; ulimit -f 2000; " TEST_TOOL
                           " record --sync callback --sync-interval 0.2 -o cut.avi" +
                           _all + more);
  ASSERT_EQ(cut.code, 3);
  // As before its end: with the headers of its beginning, and without the index.
  std::string bytes = FileText(At("cut.avi")), side = FileText(At("cut.avi.sync"));
  bytes.resize(bytes.rfind("idx1"));
  Put(bytes, bytes.find("movi") - 4, 4);
  Put(bytes, 4, static_cast<unsigned>(bytes.find("movi")) - 4);
  std::string const other = Record("callback");  // fewer tracks
  struct {
    std::string avi, sync, said;
    int code;
    bool kept;
  } const table[] = {{bytes, side, "found by the index: 3", 1, false},
                     {bytes, "", "found by the index: 0", 1, false},
                     {bytes, std::string(4096, '\0'), "found by the index: 0", 1, false},
                     {bytes, side.substr(0, 5000), "found by the index: 0", 1, false},
                     {bytes, "precious", "it is left as it is", 1, true},
                     {other, side, "belong to another recording; it is left", 1, true}};
  for (auto const& row : table) {
    SCOPED_TRACE(testing::Message() << &row - table);
    Write("cut.avi", row.avi + "00dc");
    Write("cut.avi.sync", row.sync);
    Expect("repair --in-place", {{"cut.avi", row.code, row.said.c_str()}});
    EXPECT_EQ(fs::exists(At("cut.avi.sync")), row.kept);
    EXPECT_EQ(Run("verify cut.avi").code, 0);
    // A whole file may still have one.
    Write("cut.avi.sync", row.sync);
    EXPECT_EQ(Run("repair --in-place cut.avi").code, row.kept ? 1 : 0);
    EXPECT_EQ(fs::exists(At("cut.avi.sync")), row.kept);
  }
}

// Which faults leave the states of a power cut. A write is tried twice.
TEST_F(InPlaceTest, FaultsOfTheDeviceAreReported) {
  using test::FaultIO;
  for (bool full : {false, true}) {
    std::string const bytes = Synced(full ? 100 : 40).substr(0, full ? 150000 : 60000);
    InPlaceJob job{"/s.avi", "s.avi"};
    job.largestJunk = 800;
    // Returns the error of a repair.
    auto const repair = [&](test::MemoryStorage& storage, FaultIO::Fault const& fault) {
      storage.Open(job.path, "rwbc")->Write(bytes.data(), static_cast<unsigned>(bytes.size()));
      storage.File(job.path)->Fail(fault);
      try {
        RepairInPlace(storage, job);
      } catch (Error const& error) {
        EXPECT_EQ(error.Code(), kIo);
        return std::string(error.what());
      }
      return std::string();
    };
    test::MemoryStorage good;
    EXPECT_EQ(repair(good, {FaultIO::kWrite, 0}), "");
    for (auto const& op : {FaultIO::kWrite, FaultIO::kFlush, FaultIO::kTruncate})
      for (bool forever : {false, true})
        for (int met = 1, nth = 1 + (op == FaultIO::kWrite); met > 0; ++nth) {
          SCOPED_TRACE(testing::Message() << full << op << " " << nth << (forever ? " on" : ""));
          test::MemoryStorage storage;
          std::string const said = repair(storage, {op, nth, forever, forever ? 0u : 5u, ENOSPC});
          met = storage.File(job.path)->Failures();
          bool const fails = met > 0 && (op != FaultIO::kWrite || forever);
          EXPECT_EQ(said.empty(), !fails);
          EXPECT_THAT(said, HasSubstr(fails ? std::strerror(ENOSPC) : ""));
          EXPECT_TRUE(fails || storage.Text(job.path) == good.Text(job.path));
        }
  }
}

}  // namespace
}  // namespace kestro::tool
