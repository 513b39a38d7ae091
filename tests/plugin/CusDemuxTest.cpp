// The demuxer for slow devices: its cache, by the reads that reach the device, and stream data.
#include <gmock/gmock.h>

#include "customize/CusAviDemux.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"
#include "support/Film.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

using plugin::avi::CusAviDemuxer;
using testing::HasSubstr;

Film Silent(int frames, std::size_t bytes = 40, std::string const& strd = {}) {
  return {frames, 25, {25, 1}, 0, 0, 0, bytes, strd};
}

struct Cus : Playing {
  explicit Cus(base::IO* io) : Playing(io, 0, "CusAviDemuxer") {}
  bool Preload(bool on) { return demuxer->Set("vlcPreload", on); }
  unsigned StrdSize() {
    unsigned size = 99;
    EXPECT_TRUE(demuxer->Get("strdsize", size));
    return size;
  }
  bool Strd(unsigned char* buffer) { return demuxer->Get("strddata", buffer); }
};

TEST(CusDemux, OpensLongFilesWithFewReads) {
  FilmIO file(Silent(100000));
  FaultIO device(file);
  for (char const* alias : {"AviDemuxer-avi-demuxer", "CusAviDemuxer"}) {
    int const before = device.Count(FaultIO::kRead);
    Playing p(&device, 0, alias);
    EXPECT_TRUE(p.Open());
    EXPECT_LE(device.Count(FaultIO::kRead) - before, 8) << alias;
    EXPECT_EQ(4000000, p.demuxer->Duration());
  }
  Cus p(&device);
  EXPECT_TRUE(p.demuxer->Set("preloadsz", file.Size()));
  EXPECT_TRUE(p.Preload(true));
  EXPECT_TRUE(Eventually([&] {
    int64 now = 0;
    return p.demuxer->Stream()->Get("preloaded", now) && now >= file.Size();
  }));
  int const before = device.Count(FaultIO::kRead);
  EXPECT_TRUE(p.Open());
  EXPECT_TRUE(p.demuxer->Seek(3000000));
  EXPECT_EQ(3000000, p.NextGot().pts);
  EXPECT_EQ(before, device.Count(FaultIO::kRead)) << "all of it is in memory";
  EXPECT_EQ(0, device.Overlaps());
}

TEST(CusDemux, CacheIsInstalledOnceAndForOneFile) {
  FilmIO file(Silent(50)), other(Silent(100));
  Cus p(nullptr);
  EXPECT_FALSE(p.Preload(true));
  EXPECT_TRUE(p.demuxer->Set("io", static_cast<base::IO*>(&file)));
  EXPECT_TRUE(p.Preload(true));
  base::IO* const cache = p.demuxer->Stream();
  EXPECT_TRUE(p.Preload(false));
  EXPECT_TRUE(p.Open());
  EXPECT_TRUE(p.Preload(true));
  EXPECT_EQ(cache, p.demuxer->Stream());
  EXPECT_EQ(50u, p.Times().size());
  EXPECT_TRUE(p.Close());
  EXPECT_TRUE(p.Preload(true));
  // With another file, neither the cache nor the file under it is used.
  EXPECT_TRUE(p.demuxer->Set("io", static_cast<base::IO*>(&other)));
  EXPECT_TRUE(p.Open());
  EXPECT_EQ(&other, p.demuxer->Stream());
  EXPECT_EQ(4000, p.demuxer->Duration());
  EXPECT_EQ(p.NextGot().pts, 0) << "in the middle";
  EXPECT_TRUE(p.Preload(true)) << "in the middle";
  EXPECT_EQ(p.NextGot().pts, 40) << "in the middle";
}

TEST(CusDemux, CacheHas16BlocksOf512KiB) {
  constexpr int kBlock = 0x80000;
  MemoryIO memory(std::string(20 * kBlock, 'x'));
  FaultIO device(memory);
  Cus p(&device);
  EXPECT_TRUE(p.Preload(false));
  auto const read = [&](int block) {
    char byte = 0;
    EXPECT_TRUE(p.demuxer->Stream()->Seek(int64{block} * kBlock, base::IO::kBegin));
    EXPECT_EQ(p.demuxer->Stream()->Read(&byte, 1), 1u);
    return device.Count(FaultIO::kRead);
  };
  for (int block = 0; block < 19; ++block) read(block);
  EXPECT_EQ(read(19), 20);
  EXPECT_EQ(read(4), 20);
  EXPECT_EQ(read(3), 21);
  for (auto const& call : device.Calls(FaultIO::kRead)) EXPECT_EQ(call.size, unsigned(kBlock));
}

TEST(CusDemux, CacheThatCannotBeCreated) {
  struct NoCache : CusAviDemuxer {
    std::unique_ptr<base::IO> NewCache(base::IO*) override { return nullptr; }
  };
  RegisterClasses();
  base::TClass<NoCache>::Register("Test-no-cache", NoCache::Properties());
  FilmIO file(Silent(5));
  Playing p(&file, 0, "Test-no-cache");
  base::ConsoleCapture console;
  EXPECT_FALSE(p.demuxer->Set("vlcPreload", true));
  EXPECT_THAT(console.Text(), HasSubstr("/VlcBufferPreload:\t!_io->Set(\"preload\", preload)\n"));
  EXPECT_FALSE(p.demuxer->Set("vlcPreload", true)) << "tried once";
  EXPECT_THAT(console.Text(), HasSubstr("/VlcBufferPreload:\t!_io\n"));
  EXPECT_TRUE(p.Open()) << "without it";
  EXPECT_EQ(p.Times().size(), 5) << "without it";
}

TEST(CusDemux, GivesTheStreamData) {
  std::string const strd = "application's own data 24";
  FilmIO plain(Silent(5)), file(Silent(5, 40, strd));
  for (bool cached : {false, true}) {
    unsigned char buffer[32] = "untouched";
    Cus p(&file);
    EXPECT_EQ(0u, p.StrdSize()) << "no file yet";
    EXPECT_TRUE(!cached || p.Preload(false));
    ASSERT_TRUE(p.Open());
    ASSERT_TRUE(p.Next());
    EXPECT_FALSE(p.Strd(buffer)) << "before its size";
    EXPECT_STREQ("untouched", reinterpret_cast<char*>(buffer));
    EXPECT_EQ(strd.size(), p.StrdSize());
    int64 const before = p.demuxer->Stream()->Tell();
    EXPECT_FALSE(p.Strd(nullptr));
    EXPECT_TRUE(p.Strd(buffer));
    EXPECT_EQ(before, p.demuxer->Stream()->Tell());
    EXPECT_EQ(strd, std::string(buffer, buffer + strd.size()));
    EXPECT_EQ(40, p.NextGot().pts);
    EXPECT_TRUE(p.Close());
    EXPECT_EQ(p.StrdSize(), 0);
    p.demuxer->Set("io", static_cast<base::IO*>(&plain));
    EXPECT_TRUE(p.Open());
    EXPECT_EQ(p.StrdSize(), 0) << "not that of the file before";
    EXPECT_FALSE(p.Strd(buffer)) << "that of the last file is forgotten";
  }
  // A size beyond the file, and a device that fails.
  MemoryIO broken(Text(file).substr(0, Text(file).find("strd") + 8 + 10));
  FaultIO faulty(broken);
  Cus p(&faulty);
  base::ConsoleCapture console;
  EXPECT_TRUE(p.Open());
  EXPECT_EQ(10u, p.StrdSize());
  faulty.Fail({FaultIO::kRead, 1, true});
  unsigned char buffer[32];
  EXPECT_FALSE(p.Strd(buffer));
}

}  // namespace
}  // namespace kestro::test
