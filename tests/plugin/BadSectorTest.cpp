// Files with bad sectors: play delivers what the index names as far as it can be read.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/LittleEndian.h"
#include "support/Fakes.h"
#include "support/FileLayout.h"
#include "support/Playing.h"
#include "support/SystemFault.h"

namespace kestro::test {
namespace {

constexpr unsigned kReserve = 65536;

// Twenty pictures with an audio block each, in a file.
class BadSectors : public testing::TestWithParam<char const*> {
 protected:
  void SetUp() override {
    RegisterClasses();
    if (base::IClass::Find(GetParam(), true) == nullptr) GTEST_SKIP() << "not in this build";
  }
  void TearDown() override { std::filesystem::remove_all(_folder); }

  void Make(bool indexFirst) {
    Shape shape;
    shape.audio = true;
    shape.indexFirst = indexFirst;
    shape.reserve = kReserve;
    std::vector<Chunk> chunks;
    for (int i = 0; i < 20; ++i) {
      chunks.push_back({"00dc", StoredKeyFrame(std::string(2000, 'p')), true});
      chunks.push_back({"01wb", std::string(7680, 's'), true});
    }
    _file = Expected(shape, chunks);
    Write();
    _chunks.clear();
    auto at = static_cast<int64>(At("movi") + 4);
    for (Chunk const& chunk : chunks) {
      auto const size = static_cast<int64>(chunk.stored.size());
      _chunks.push_back({at + 8, size});
      at += 8 + size + size % 2;
    }
  }
  void Write() const {
    std::ofstream(_path, std::ios::binary) << std::string(_file.begin(), _file.end());
  }
  std::size_t At(char const* code) const {
    return static_cast<std::size_t>(std::search(_file.begin(), _file.end(), code, code + 4) -
                                    _file.begin());
  }

  // Plays the file, with a cache where there is one. Returns the sizes of the packets, and -1 for a
  // read that failed.
  std::vector<int64> Play() {
    Playing p(nullptr, 0, GetParam());
    p.demuxer->Set("path", _path);
    Messages messages(*p.demuxer);
    base::ConsoleCapture console;
    p.demuxer->Set("preloadsz", int64{10000});
    p.demuxer->Set("vlcPreload", true);
    EXPECT_TRUE(p.Open());
    _messages = messages.All();
    std::vector<int64> sizes;
    while (auto packet = p.Next()) sizes.push_back(packet->Size());
    if (p.failures > 0) sizes.push_back(-1);
    return sizes;
  }
  // What play should return where the bytes between two offsets are bad.
  std::vector<int64> Readable(int64 from, int64 to) const {
    std::vector<int64> sizes;
    for (auto const& [at, size] : _chunks) {
      bool const whole = at + size <= from || at >= to;
      sizes.push_back(whole ? size : at < from ? from - at : -1);
      if (sizes.back() < 0) break;
    }
    return sizes;
  }

  std::string const _folder = NewFolder(), _path = _folder + "/bad.avi";
  Bytes _file;
  std::vector<std::pair<int64, int64>> _chunks;  // offset and size of their data
  std::vector<std::string> _messages;            // while it was opened
};

TEST_P(BadSectors, InTheDataEndPlayThereAndNotBefore) {
  for (bool const indexFirst : {true, false}) {
    Make(indexFirst);
    int64 const end = _chunks.back().first + _chunks.back().second;  // before an index that is last
    for (std::size_t i = 0; i < _chunks.size(); i += TEST_STEP) {
      auto const [at, size] = _chunks[i];
      for (int64 const from : {at - 8, at - 3, at, at + 1, at + size / 2, at + size - 1})
        for (int64 const length : {512, 4096, 1 << 30}) {
          int64 const to = std::min(from + length, indexFirst ? INT64_MAX : end);
          SCOPED_TRACE(testing::Message() << from << " to " << to << ", first " << indexFirst);
          SystemFault const fault("/bad.avi", from, to);
          ASSERT_EQ(Readable(from, to), Play());
          bool const headless = from <= _chunks[0].first && _chunks[0].first < to;
          ASSERT_EQ(headless ? 1u : 0u, _messages.size()) << "its parameter sets";
          ASSERT_GT(fault.Failures(), 0);
        }
    }
  }
}

TEST_P(BadSectors, InTheIndexAreReported) {
  for (bool const indexFirst : {true, false}) {
    Make(indexFirst);
    auto const index = static_cast<int64>(At("idx1") + 8), used = int64{16} * 40;
    struct {
      int64 from, to;
      std::size_t packets;
      bool reported;
    } const cases[] = {{index + 16 * 10, index + 16 * 20, 10, true},
                       {index + 16 * 10 + 5, INT64_MAX, 10, true},
                       {index + used + 16, index + used + 512, 40, false},
                       {index + kReserve, INT64_MAX, 40, false}};
    for (auto const& c : cases) {
      if (c.to == INT64_MAX && indexFirst) continue;  // the data would be bad, too
      SCOPED_TRACE(testing::Message() << c.from - index << ", first " << indexFirst);
      SystemFault const fault("/bad.avi", c.from, c.to);
      EXPECT_EQ(c.packets, Play().size());
      EXPECT_EQ(std::vector<std::string>(c.reported, "error: reading failed"), _messages);
    }
  }
}

// In a recording that was cut off, data follows what movi and the index cover.
TEST_P(BadSectors, AfterTheCoveredDataAreNotReported) {
  Make(true);
  std::size_t const kept = 30, movi = At("movi");
  auto const end = static_cast<std::size_t>(_chunks[kept].first) - 8;
  base::Store32(&_file[movi - 4], static_cast<unsigned>(end - movi));
  std::fill_n(_file.begin() + static_cast<std::ptrdiff_t>(At("idx1") + 8 + 16 * kept), 16 * 10, 0);
  Write();
  for (int const further : {0, 3, 8, 100}) {
    SystemFault const fault("/bad.avi", static_cast<int64>(end) + further);
    EXPECT_EQ(kept, Play().size()) << further;
    EXPECT_EQ(std::vector<std::string>(), _messages) << further;
    EXPECT_GT(fault.Failures(), 0) << further;
  }
}

INSTANTIATE_TEST_SUITE_P(Demuxers, BadSectors,
                         testing::Values("AviDemuxer-avi-demuxer", "CusAviDemuxer"));

}  // namespace
}  // namespace kestro::test
