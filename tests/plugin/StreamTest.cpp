// The streams of a recording: what they store, count and put into their headers.
#include <gmock/gmock.h>

#include "common/DataChunks.h"
#include "common/IStream.h"
#include "common/StreamJpeg.h"
#include "support/FileLayout.h"

namespace kestro::test {
namespace {

using namespace plugin::avi;
using testing::ElementsAre;

// A stream that writes to memory.
struct Muxing {
  explicit Muxing(base::Ref<IMedia> m, int track = 0, int threshold = -1)
      : media(std::move(m)),
        tags(Make<base::Object>("AviVideoTags")),
        stream(IStream::New(media->Codec(), media->Codec(), track)) {
    para.idx1WithTmpFile = threshold;
    stream->Set("frameRate", base::Fraction(30000, 1001));
    stream->MuxReset();
    configured = stream->MuxConfig(&list, media.get(), tags.get(), &para);
    root.Add(stream->Strl());
  }
  bool Add(std::string const& data, bool key = false) {
    return stream->AddPacket(*MakePacket(media.get(), data, key), io, 0);
  }
  template <class T>
  T& Chunk(char const* id) {
    return *dynamic_cast<T*>(stream->Strl()->Find(id));
  }
  cstrh& Header() {
    EXPECT_TRUE(configured);
    EXPECT_TRUE(stream->MuxUpdate());
    return Chunk<cstrh>("strh");
  }

  base::Ref<IMedia> media;
  std::unique_ptr<base::Object> tags;
  std::unique_ptr<IStream> stream;
  MuxerParam para;
  std::vector<ChunkParam> list;
  MemoryIO io;
  croot root;
  bool configured = false;
};

std::string Nal(char const* header, std::string const& payload = "....") {
  return kStart + std::string(header, 1) + payload;
}

// Up to the first parameter set or slice.
TEST(Streams, TrimLeadingUnits) {
  std::string const aud = Nal("\x09", "\x10"), sei = Nal("\x06", "0001"), idr = Nal("\x65");
  std::string const sps = Nal("\x67"), pps = Nal("\x68"), slice = Nal("\x41");
  std::string const haud = Nal("\x46", "\x01\x50"), vps = Nal("\x40"), hidr = Nal("\x26");
  std::string const rasl = Nal("\x12"), three("\0\0\1\x65....", 8);
  struct Case {
    char const* codec;
    std::string data;
    std::size_t dropped;
  } const cases[] = {
      {"h264", aud + sps + pps + idr, aud.size()},
      {"h264", aud + sei + slice, aud.size() + sei.size()},
      {"h264", slice, 0},
      {"h264", aud + sei, 0},                        // nothing to start with
      {"h264", aud + kStart + "\x41", 0},            // too short to look at
      {"h264", aud + kStart + "\x41!", aud.size()},  // six bytes are enough
      {"h264", aud + std::string("\0", 1) + idr, aud.size() + 1},
      {"h264", three, 0},
      {"hevc", haud + vps + hidr, haud.size()},
      {"hevc", haud + Nal("\x4E") + Nal("\x02"), haud.size() + 9},  // SEI, then a trailing picture
      {"hevc", haud + Nal("\x2A"), haud.size()},                    // CRA
      {"hevc", haud + rasl, 0},
      {"hevc", rasl + Nal("\x10"), rasl.size()},  // type 8
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.codec << " case " << &c - cases);
    Muxing m(VideoMedia(c.codec), 12);
    EXPECT_TRUE(m.Add(c.data, true));
    std::string const stored = c.data.substr(c.dropped);
    EXPECT_EQ("", Difference(Plain("12dc", stored).Zeros(stored.size() % 2), m.io.bytes));
    EXPECT_EQ(0x10u, m.list.at(0).flags);
    EXPECT_EQ(stored.size(), m.list.at(0).size);
  }
}

TEST(Streams, PcmHeaders) {
  struct Case {
    int rate, channel, width, depth;
    unsigned scale, dwRate, average;
  } const cases[] = {{48000, 2, 2, 16, 4, 192000, 192000},
                     {8000, 1, 2, 16, 2, 16000, 16000},
                     {44100, 2, 2, 12, 2, 132300, 176400}};  // 12 / 8 is 1
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.rate << " Hz of " << c.depth << " bits");
    auto media = AudioMedia(c.rate, c.channel);
    media->Set("width", c.width);
    media->Set("depth", c.depth);
    Muxing m(media);
    auto const& strh = m.Header();
    auto const& strf = m.Chunk<castrf>("strf");
    EXPECT_EQ(1, m.stream->Duration()) << "never zero";
    m.Add(std::string(4096, 's'), true);
    m.stream->MuxUpdate();
    EXPECT_THAT((std::vector{strh.dwScale, strh.dwRate, strh.dwSampleSize, strh.dwLength}),
                ElementsAre(c.scale, c.dwRate, c.channel * c.width, 4096 / c.scale));
    EXPECT_THAT(
        (std::vector<unsigned>{strf.nAvgBytesPerSec, strf.nBlockAlign, strf.wBitsPerSample}),
        ElementsAre(c.average, c.scale, c.width * 8));
    EXPECT_EQ(0u, m.list.at(0).flags);
  }
  for (std::string const key : {"rate", "channel", "width", "depth", "samples"}) {
    auto media = AudioMedia();
    media->Set(key.c_str(), "none");
    EXPECT_FALSE(Muxing(media).configured) << "without " << key;
    media->Set(key.c_str(), key == "depth" ? 7 : 0);
    EXPECT_EQ(key == "samples", Muxing(media).configured) << "too little " << key;
  }
  struct {
    int channel, width, depth;
    bool taken;
  } const largest[] = {{1, 1, 8, true},     {32767, 2, 16, true}, {32768, 2, 16, false},
                       {65535, 1, 8, true}, {21845, 1, 24, true}, {21846, 1, 24, false},
                       {1, 8191, 16, true}, {1, 8192, 16, false}};
  for (auto const& c : largest) {
    auto media = AudioMedia(8000, c.channel);
    media->Set("width", c.width);
    media->Set("depth", c.depth);
    EXPECT_EQ(c.taken, Muxing(media).configured)
        << c.channel << " * " << c.width << ", " << c.depth;
  }
}

// Motion JPEG packets carry the header of their chunk; the index entry counts the padding.
TEST(Streams, JpegIsStoredAsItComes) {
  Muxing m(VideoMedia("jpeg", 64, 48, {30, 1}), 3);
  Bytes const packet = Plain("03dc", "jpg");
  m.Add({packet.begin(), packet.end()}, true);
  m.Add("");
  EXPECT_EQ("", Difference(Joined({packet, Bytes().Zeros(1)}), m.io.bytes));
  EXPECT_EQ(12u, m.list.at(0).size);
  EXPECT_EQ(300000u, m.Header().dwRate);
  EXPECT_EQ(1u, m.Header().dwLength) << "its index entries are counted";
  EXPECT_EQ(base::Convert4("MJPG"), m.Chunk<cvstrf>("strf").biCompression);
}

// WriteData, which recording does not use, adds a header with a big-endian size.
TEST(Streams, JpegWritesItsOwnHeader) {
  Muxing m(VideoMedia("jpeg", 64, 48, {30, 1}), 3);
  auto const packet = MakePacket(m.media.get(), "picture", true);
  EXPECT_EQ(15, dynamic_cast<StreamJpeg&>(*m.stream).WriteData(m.io, *packet));
  Bytes const header = Bytes().Cc("03dc").Raw({0, 0, 0, 7});
  EXPECT_EQ("", Difference(Joined({header, Bytes("picture").Zeros(1)}), m.io.bytes));
  EXPECT_EQ(7u, m.stream->Bytes());
  EXPECT_EQ(1u, m.Header().dwLength);
  EXPECT_TRUE(m.list.empty());
}

TEST(Streams, TextCountsItsPadding) {
  Muxing m(VideoMedia("txt"), 2);
  EXPECT_EQ(0u, m.Chunk<cstrh>("strh").dwSuggestedBufferSize) << "while recording";
  auto const& strh = m.Header();
  EXPECT_EQ(1u, strh.dwSuggestedBufferSize);
  EXPECT_EQ(1, m.stream->Duration());
  Bytes expected;
  for (unsigned size : {10, 300, 17}) {
    m.Add(std::string(size, 't'), true);
    expected.Add(Plain("02tx", std::string(size, 't'))).Zeros(size % 2);
  }
  EXPECT_EQ("", Difference(expected, m.io.bytes));
  m.stream->MuxUpdate();
  EXPECT_EQ(512u, strh.dwSuggestedBufferSize);
  EXPECT_EQ(3u, strh.dwLength);
  EXPECT_EQ(0u, strh.fccHandler);
  EXPECT_THAT(m.list, testing::Each(testing::Field(&ChunkParam::flags, 0u)));
  EXPECT_THAT(m.list, ElementsAre(testing::Field(&ChunkParam::size, 10u),
                                  testing::Field(&ChunkParam::size, 300u),
                                  testing::Field(&ChunkParam::size, 18u)));
}

TEST(Streams, StoreOnlyTheirOwnCodecAndTrack) {
  RegisterClasses();
  for (char const* codec : {"", "vp9", "h264-avi", "-", "stream", "AviMuxer", "Pcm"})
    EXPECT_FALSE(std::unique_ptr<IStream>(IStream::New(codec, codec, 0))) << codec;
  EXPECT_FALSE(std::unique_ptr<IStream>(IStream::New("h264", "h264", 100))) << "a third digit";
  Muxing aac(base::Ref<IMedia>::Take(IMedia::New("aac"))), video(VideoMedia());
  EXPECT_TRUE(aac.configured);
  EXPECT_EQ(aac.stream->Strl(), nullptr);
  EXPECT_TRUE(aac.Add("audio"));
  EXPECT_TRUE(aac.stream->MuxUpdate());
  EXPECT_FALSE(video.stream->AddPacket(*MakePacket(aac.media.get(), Frame("x")), video.io, 0));
  EXPECT_TRUE(aac.io.bytes.empty());
  EXPECT_EQ(aac.stream->EntryCount(), 0);
  EXPECT_TRUE(video.io.bytes.empty());
  EXPECT_TRUE(video.list.empty());
}

// A batch is as many index entries as that many seconds have.
TEST(Streams, SpillBatches) {
  struct Case {
    base::Ref<IMedia> media;
    int threshold;
    unsigned batch;
  } const cases[] = {
      {VideoMedia(), -1, 4096},       {VideoMedia(), 0, 4096},
      {VideoMedia(), 10, 290},        {AudioMedia(), 10, 250},
      {AudioMedia(8000, 1, 0), 1, 0}, {AudioMedia(8000, 1, -1), 1, 0},
      {VideoMedia(), 1 << 30, 65536}, {VideoMedia("txt"), 10, 4096},
  };
  for (auto const& c : cases)
    EXPECT_EQ(c.batch, Muxing(c.media, 0, c.threshold).stream->SpillBatch())
        << c.media->Codec() << " " << c.threshold;
}

// After any number of seconds, unless the muxer never spills.
TEST(Streams, SpillAFullList) {
  for (int const threshold : {-1, 0, 1})
    for (bool const never : {false, true}) {
      SCOPED_TRACE(testing::Message() << threshold << " " << never);
      Muxing m(VideoMedia(), 0, threshold);
      m.stream->MuxFlags(false, false, never);
      m.list.reserve(4);
      for (int i = 0; i < 10; ++i) EXPECT_TRUE(m.Add("x"));
      EXPECT_EQ(m.list.size() < 10, threshold >= 0 && !never);
      EXPECT_TRUE(m.stream->MuxUpdate());
      EXPECT_EQ(m.list.size(), 10u);
    }
}

TEST(Streams, MovedDataMovesPositions) {
  Muxing m(VideoMedia());
  for (unsigned offset : {100u, 200u, 0u, 400u}) m.list.emplace_back().offset = offset;
  auto const offsetsAre = [&m](auto... offsets) {
    EXPECT_THAT(m.list, ElementsAre(testing::Field(&ChunkParam::offset, offsets)...));
  };
  m.stream->UpdateChunkList(1000);
  offsetsAre(1100, 1200, 0, 1400);
  m.stream->UpdateVfiChunkList(3000);
  offsetsAre(1100, 1200, 3000, 4400);
}

// Rates that a header cannot hold are refused, those without a value are stored as 0.
TEST(Streams, ImpossibleRates) {
  for (char const* codec : {"jpeg", "txt"}) {
    SCOPED_TRACE(codec);
    for (base::Fraction rate : {base::Fraction(-25, 1), base::Fraction(1000000000, 1)})
      EXPECT_FALSE(Muxing(VideoMedia(codec, 64, 48, rate)).configured) << rate.Text();
    for (base::Fraction rate : {base::Fraction(1, 0), base::Fraction(INT64_MIN, -1)})
      EXPECT_EQ(0u, Muxing(VideoMedia(codec, 64, 48, rate)).Header().dwRate) << rate.Text();
  }
}

TEST(Chunks, AreFoundInOrder) {
  croot root;
  IList* riff = root.Add(new criff);
  IList* hdrl = riff->Add(new chdrl);
  IList* avih = hdrl->Add(new cavih);
  IList* strl = hdrl->Add(new cstrl);
  IList* strh = strl->Add(new cstrh);
  IList* junk = riff->Add(new cjunk(nullptr, 0));
  EXPECT_EQ(hdrl, root.Find("LIST"));
  EXPECT_EQ(strh, avih->Find("strh")) << "a leaf goes on with its siblings";
  EXPECT_EQ(nullptr, hdrl->Find("JUNK")) << "a list does not";
  EXPECT_EQ(junk, root.Find("JUNK"));
  EXPECT_EQ(nullptr, root.Find("strl")) << "list types are not ids";
  std::string text;
  base::ostream_string os(text);
  *avih >> os;
  EXPECT_EQ(
      "plugin/avi/common/IList/31/operator>>:\tavih\n"
      "kestro::plugin::avi::IList*(nullptr)kestro::plugin::avi::cstrl(unknow)",
      text);
}

}  // namespace
}  // namespace kestro::test
