// Reading files back: media, packets, seeks, and copying a file from muxer to muxer.
#include <gmock/gmock.h>

#include <random>

#include "base/LittleEndian.h"
#include "stream/ParameterSetFilter.h"
#include "support/Bytes.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"
#include "support/Film.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string Extra(IMedia& media) {
  auto const extra = media.ExtraData();
  return {extra->begin(), extra->end()};
}

// One read that fails does not end play.
TEST(Demux, DeliversWhatWasRecorded) {
  FilmIO io({4, 2});
  base::Store32(&io.bytes[Text(io).rfind("strh") + 40], 0);  // the index says how much audio
  FaultIO device(io);
  Playing p(&device);
  base::ConsoleCapture console;
  EXPECT_EQ(nullptr, p.demuxer->GeneratePacket(nullptr)) << "before Open";
  ASSERT_TRUE(p.Open());
  device.Fail({FaultIO::kRead, device.Count(FaultIO::kRead) + 1});
  EXPECT_FALSE(p.Next());
  EXPECT_EQ(p.failures, 1);
  EXPECT_THAT(console.Text(),
              HasSubstr("/GetPacket:\tpkt == (Packet*)-1,IStream GetPacket error!\n"));
  EXPECT_EQ(160, p.demuxer->Duration());
  auto const key = [](int i) {
    std::string stored = StoredKeyFrame(Payload(i));
    std::fill_n(stored.begin(), stored.find(kStart + "\x65"), '\0');  // all before the slice
    return stored;
  };
  std::string const audio(7680, 's');
  EXPECT_THAT(p.All(), ElementsAre(Got{0, 0, true, false, key(0)}, Got{1, 0, true, false, audio},
                                   Got{0, 40, false, false, StoredFrame(Payload(1))},
                                   Got{1, 40, true, false, audio}, Got{0, 80, true, false, key(2)},
                                   Got{1, 80, true, false, audio},
                                   Got{0, 120, false, true, StoredFrame(Payload(3))},
                                   Got{1, 120, true, true, audio}));
  auto const expect = [](IMedia& media, std::initializer_list<std::pair<char const*, int>> keys) {
    for (auto const& [name, value] : keys) {
      base::Fraction got;
      EXPECT_TRUE(media.Get(name, got)) << name;
      EXPECT_EQ(got, base::Fraction(value, 1)) << name;
    }
  };
  IMedia& video = *p.outputs[0]->Media();
  expect(video, {{"width", 320}, {"height", 180}, {"gop", 2}, {"interlace", 0}, {"framerate", 25}});
  expect(*p.outputs[1]->Media(),
         {{"rate", 48000}, {"channel", 2}, {"depth", 16}, {"width", 2}, {"samples", 1920}});
  EXPECT_EQ(kStart + "\x67sps" + kStart + "\x68pps", Extra(video));
  for (unsigned const rate : {0u, 1u}) {  // in frames per second
    base::Store32(&io.bytes[Text(io).find("strh") + 32], rate * 10000);
    Playing other(&io);
    EXPECT_TRUE(other.Open());
    EXPECT_EQ(rate * 4000, other.demuxer->Duration());
  }
}

// An entry of zeros ends an index that comes before the data.
TEST(Demux, SkipsEntriesThatNameNoChunk) {
  Shape shape;
  shape.indexFirst = true;
  Bytes const file = Expected(shape, std::vector<Chunk>(4, {"00dc", StoredKeyFrame("x"), true}));
  struct {
    char const* name;
    Bytes entry;  // in place of the second one
    std::size_t packets;
  } const cases[] = {{"an id without digits", Bytes().Cc("/:dc").U32(16, 500, 9), 3},
                     {"an id alone", Bytes().Cc("00dc").Zeros(12), 3},
                     {"flags alone", Bytes().U32(0, 16, 0, 0), 3},
                     {"zeros", Bytes().Zeros(16), 1}};
  for (auto const& c : cases) {
    MemoryIO io({file.begin(), file.end()});
    std::copy(c.entry.begin(), c.entry.end(), &io.bytes[Text(io).find("idx1") + 24]);
    Playing p(&io);
    EXPECT_TRUE(p.Open()) << c.name;
    EXPECT_EQ(p.All().size(), c.packets) << c.name;
  }
}

// What is played from a file, with parameter sets.
std::vector<std::string> Filtered(base::IO& io) {
  Playing p(&io);
  stream::ParameterSetFilter filter;
  CaptureSink sink;
  auto const track = filter.AddTrack();
  EXPECT_TRUE(IPort::Link(*p.outputs[0], *track.input));
  EXPECT_TRUE(IPort::Link(*track.output, *sink.AddInput()));
  Messages messages(*p.demuxer);
  EXPECT_TRUE(filter.StatusChange(IStatus::kRunning) && p.Run() && messages.Reach(1) && p.Close());
  return sink.packets.All();
}

// Of any length, and more than one of a kind.
TEST(Demux, GivesParameterSetsToTheMedia) {
  struct Case {
    char const *codec, *vps, *sps, *pps, *sei, *slice;
  } const cases[] = {{"h264", "", "\x67", "\x68", "\x06", "\x65"},
                     {"hevc", "\x40", "\x42", "\x44", "\x4E", "\x26"}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.codec);
    std::string const vps = *c.vps == '\0' ? "" : kStart + c.vps + std::string(200, 'v');
    std::string const sps = kStart + c.sps + std::string(300, 's');
    std::string const pps = kStart + c.pps + std::string(90, 'p');
    std::string const slice = kStart + c.slice + "slice", sets = vps + sps + pps + pps;
    MemoryIO io;
    {
      Recording r(&io);
      EXPECT_TRUE(r.Track(VideoMedia(c.codec)).Open());
      EXPECT_TRUE(r.Push(0, sets + kStart + c.sei + "sei" + slice, true));
    }
    Playing p(&io);
    ASSERT_TRUE(p.Open());
    IMedia& media = *p.outputs[0]->Media();
    EXPECT_EQ(sets, Extra(media));
    Got const got = p.NextGot();
    EXPECT_EQ(std::string(got.data.size() - slice.size(), '\0') + slice, got.data);
    EXPECT_THAT(Filtered(io), ElementsAre(sets + slice));
    if (vps.empty()) continue;
    for (auto const& [key, set] : {std::pair{"vps", vps}, {"sps", sps}, {"pps", pps}}) {
      SCOPED_TRACE(key);
      unsigned char* data = nullptr;
      int size = 0;
      EXPECT_TRUE(media.Get(key, data));
      EXPECT_TRUE(media.Get((std::string("i") + key).c_str(), size));
      EXPECT_EQ(set, std::string(data, data + size));
    }
  }
}

// From anywhere in the file; the audio goes on in step.
TEST(Demux, SeeksToTheKeyFrameAtOrBeforeATime) {
  std::pair<Film, int64> const films[] = {
      {{95, 25, {30, 1}, 8000, 1, 320}, 10},
      {{61, 30, {30000, 1001}, 0}, 10},
      {{7, 100}, 10},
      // Beyond 35.8 minutes the clocks of the forward search do not suffice.
      {{45 * 60 * 25, 50, {25, 1}, 8000, 1, 320}, 3333}};
  for (auto const& [film, step] : films) {
    SCOPED_TRACE(testing::Message() << film.frames << " frames of " << film.rate.Text() << " fps");
    FilmIO io(film);
    Playing p(&io);
    ASSERT_TRUE(p.Open());
    int64 const length = p.demuxer->Duration(), frame_us = length * 1000 / film.frames;
    std::mt19937 random(1);
    for (int64 t = 0; t <= length + 500; t += step) {
      for (unsigned skip = random() % 4; skip > 0; --skip) p.Next();
      ASSERT_TRUE(p.demuxer->Seek(t));
      int64 first[2] = {-1, -1};  // of the video and the audio after the seek
      for (Got got; first[0] < 0 || first[1] < 0;) {
        if (got = p.NextGot(); got.track < 0) break;
        if (int64& at = first[got.track]; at < 0) at = got.pts;
      }
      int64 const frame = std::min<int64>(t * 1000 / frame_us, film.frames - 1);
      ASSERT_EQ(first[0], frame / film.gop * film.gop * frame_us / 1000) << "seek to " << t;
      if (first[1] < 0) continue;
      ASSERT_LE(std::abs(first[0] - first[1]), 41) << "seek to " << t;
    }
  }
}

TEST(Demux, PlaysTheChosenVideoTrack) {
  MemoryIO io;
  RecordTwoVideos(io, 20);
  Playing p(&io, 1);
  ASSERT_TRUE(p.Open());
  auto const shows = [](Playing& p, int wanted, char const* data) {
    int width = 0;
    p.outputs[0]->Media()->Get("width", width);
    EXPECT_EQ(wanted, width);
    EXPECT_EQ(wanted == 640, !Extra(*p.outputs[0]->Media()).empty()) << "sets in the first frame";
    EXPECT_THAT(p.NextGot().data, HasSubstr(data));
  };
  shows(p, 640, "second");
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 0));
  shows(p, 320, "first");
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 9)) << "no such track: audio alone";
  EXPECT_EQ(1, p.NextGot().track) << "no such track: audio alone";
  std::vector<std::string> reported;
  EXPECT_TRUE(p.demuxer->ParseFile([&](IMedia* media) {
    reported.push_back(media->Codec());
    return true;
  }));
  EXPECT_THAT(reported, ElementsAre("h264", "pcm"));
  // The choice changes while the file is opened, when a read error is reported.
  FaultIO device(io);
  device.Readable(io.Size() - 1);
  Playing late(&device);
  late.demuxer->OnMessage(
      [](stream::IElement& element, auto...) { return element.Set("plyVidCtrl", 1); });
  ASSERT_TRUE(late.Open());
  shows(late, 640, "second");
}

TEST(Demux, OffersATrackWithoutPackets) {
  MemoryIO io;
  {
    Recording r(&io);
    EXPECT_TRUE(r.Track(VideoMedia()).Track(AudioMedia()).Open());
    EXPECT_TRUE(r.Push(0, KeyFrame("x"), true));
  }
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  int samples = -1;
  EXPECT_TRUE(p.outputs[1]->Media()->Get("samples", samples)) << "which a muxer asks for";
  EXPECT_EQ(samples, 0);
}

// The element's thread delivers through a filter to a muxer.
TEST(Demux, RecordsAnEqualCopyOfAFile) {
  FilmIO from({200});
  MemoryIO to;
  Recording copy(&to);
  stream::ParameterSetFilter filter;
  Playing p(&from);
  for (std::size_t i = 0; i < 2; ++i) {
    auto const track = filter.AddTrack();
    ASSERT_TRUE(IPort::Link(*p.outputs[i], *track.input));
    ASSERT_TRUE(IPort::Link(*track.output, *copy.muxer->AddInput()));
  }
  Messages messages(*p.demuxer);
  ASSERT_TRUE(copy.Open());
  ASSERT_TRUE(filter.StatusChange(IStatus::kRunning));
  ASSERT_TRUE(p.Run());
  ASSERT_TRUE(messages.Reach(1));
  EXPECT_THAT(messages.All(), ElementsAre("eos"));
  EXPECT_TRUE(copy.Close());
  EXPECT_TRUE(p.Close());
  EXPECT_EQ("", Difference(from.bytes, to.bytes));
}

// Another track does not resume the thread.
TEST(Demux, GoesOnAfterTheEndWithASeekOrAMode) {
  MemoryIO io;
  RecordTwoVideos(io, 20);
  Playing p(&io);
  CaptureSink sink;
  p.Link(sink);
  Messages messages(*p.demuxer);
  ASSERT_TRUE(p.Run());
  ASSERT_TRUE(messages.Reach(1));
  base::ConsoleCapture console;
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 1));
  EXPECT_TRUE(p.demuxer->Ended());
  EXPECT_TRUE(p.demuxer->Seek(0));
  EXPECT_TRUE(messages.Reach(2));
  EXPECT_TRUE(p.demuxer->PlayModeSwitch(PlayMode::kBack));
  EXPECT_TRUE(messages.Reach(3));
  EXPECT_THAT(messages.All(), ElementsAre("eos", "eos", "eos"));
  EXPECT_TRUE(p.Close());
}

}  // namespace
}  // namespace kestro::test
