// Reading files back: streams, play processes, seeking, and the whole road from muxer to muxer.
#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "base/LittleEndian.h"
#include "common/IStream.h"
#include "stream/ParameterSetFilter.h"
#include "support/Bytes.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"
#include "support/Film.h"
#include "support/HostileFiles.h"
#include "support/Playing.h"

namespace kestro::test {
namespace {

using plugin::avi::ChunkParam;
using plugin::avi::IStream;
using testing::ElementsAre;
using testing::HasSubstr;

std::string Extra(IMedia& media) {
  auto const extra = media.ExtraData();
  return {extra->begin(), extra->end()};
}

// Hostile files tell of those that do not open; here one read fails, which ends nothing.
TEST(Demux, DeliversWhatWasRecorded) {
  FilmIO io({4, 2});
  base::Store32(&io.bytes[Text(io).rfind("strh") + 40], 0);  // the index tells how much sound
  FaultIO device(io);
  Playing p(&device);
  base::ConsoleCapture console;
  EXPECT_EQ(nullptr, p.demuxer->GeneratePacket(nullptr)) << "before Open";
  ASSERT_TRUE(p.Open());
  device.Fail({FaultIO::kRead, device.Count(FaultIO::kRead) + 1});
  EXPECT_TRUE(!p.Next() && p.failures == 1);
  EXPECT_THAT(console.Text(),
              HasSubstr("/GetPacket:\tpkt == (Packet*)-1,IStream GetPacket error!\n"));
  EXPECT_EQ(160, p.demuxer->Duration());
  auto const key = [](int i) {
    std::string stored = StoredKeyFrame(Payload(i));
    std::fill_n(stored.begin(), stored.find(kStart + "\x65"), '\0');  // all before the slice
    return stored;
  };
  std::string const sound(7680, 's');
  EXPECT_THAT(p.All(), ElementsAre(Got{0, 0, true, false, key(0)}, Got{1, 0, true, false, sound},
                                   Got{0, 40, false, false, StoredFrame(Payload(1))},
                                   Got{1, 40, true, false, sound}, Got{0, 80, true, false, key(2)},
                                   Got{1, 80, true, false, sound},
                                   Got{0, 120, false, true, StoredFrame(Payload(3))},
                                   Got{1, 120, true, true, sound}));
  // The media say again what was recorded.
  auto const says = [](IMedia& media, std::initializer_list<std::pair<char const*, int>> keys) {
    for (auto const& [name, value] : keys) {
      base::Fraction got;
      EXPECT_TRUE(media.Get(name, got) && got == base::Fraction(value, 1)) << name;
    }
  };
  IMedia& video = *p.outputs[0]->Media();
  says(video, {{"width", 320}, {"height", 180}, {"gop", 2}, {"interlace", 0}, {"framerate", 25}});
  says(*p.outputs[1]->Media(),
       {{"rate", 48000}, {"channel", 2}, {"depth", 16}, {"width", 2}, {"samples", 1920}});
  EXPECT_EQ(kStart + "\x67sps" + kStart + "\x68pps", Extra(video));
}

// Parameter sets of any length, and those behind the first of each kind, reach the media.
TEST(Demux, FindsLongParameterSets) {
  struct Case {
    char const *codec, *vps, *sps, *pps, *sei, *slice;
  } const cases[] = {{"h264", "", "\x67", "\x68", "\x06", "\x65"},
                     {"hevc", "\x40", "\x42", "\x44", "\x4E", "\x26"}};
  for (auto const& c : cases) {
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
    if (vps.empty()) continue;
    for (auto const& [key, set] : {std::pair{"vps", vps}, {"sps", sps}, {"pps", pps}}) {
      unsigned char* data = nullptr;
      int size = 0;
      EXPECT_TRUE(media.Get(key, data) && media.Get((std::string("i") + key).c_str(), size));
      EXPECT_EQ(set, std::string(data, data + size));
    }
  }
}

// What is left of a reserve ends an index before the data; elsewhere entries of zeros are left
// out.
TEST(Demux, LeavesOutEntriesOfZeros) {
  std::vector<Chunk> chunks;
  for (int i = 0; i < 10; ++i) chunks.push_back({"00dc", StoredKeyFrame(Payload(i)), true});
  struct {
    char const* what;
    unsigned fields;  // that become zero: 1 id, 2 flags, 4 offset, 8 size
    std::vector<int> first, last;
  } const cases[] = {
      {"all", 15, {0, 1, 2}, {0, 1, 2, 4, 5, 6, 7, 8, 9}},
      {"offset and size", 12, {0, 1, 2, 4, 5, 6, 7, 8, 9}, {0, 1, 2, 4, 5, 6, 7, 8, 9}},
      {"all but the flags", 13, {0, 1, 2, 4, 5, 6, 7, 8, 9}, {0, 1, 2, 4, 5, 6, 7, 8, 9}},
      {"the id", 1, {0, 1, 2, 4, 5, 6, 7, 8, 9}, {0, 1, 2, 4, 5, 6, 7, 8, 9}}};
  for (auto const& c : cases)
    for (bool const first : {true, false}) {
      Shape shape;
      shape.indexFirst = first;
      Bytes file = Expected(shape, chunks);
      std::size_t const entry = Find(file, "idx1") + 8 + 16 * 3;
      for (std::size_t field = 0; field < 4; ++field)
        if ((c.fields >> field & 1) != 0) file = With(file, entry + 4 * field, 0);
      MemoryIO io({file.begin(), file.end()});
      Playing p(&io);
      ASSERT_TRUE(p.Open());
      std::vector<int> played;
      for (Got const& got : p.All()) played.push_back(got.data.back() - '0');
      EXPECT_EQ(first ? c.first : c.last, played) << c.what << ", first " << first;
    }
}

// The key frame at or before a time, from wherever play stood, and sound from there in step.
TEST(Demux, SeeksToTheKeyFrameBefore) {
  std::pair<Film, int64> const films[] = {
      {{100, 10}, 10},
      {{95, 25, {30, 1}, 8000, 1, 320}, 10},
      {{40, 1, {10, 1}}, 10},
      {{61, 30, {30000, 1001}, 0}, 10},
      {{7, 100}, 10},
      // Beyond 35.8 minutes the clocks of the forward search do not suffice.
      {{45 * 60 * 25, 50, {25, 1}, 8000, 1, 320}, 3333}};
  for (auto const& [film, step] : films) {
    FilmIO io(film);
    Playing p(&io);
    ASSERT_TRUE(p.Open());
    int64 const length = p.demuxer->Duration(), frameUs = length * 1000 / film.frames;
    bool const silent = film.soundRate == 0;
    std::mt19937 random(1);
    for (int64 t = 0; t <= length + 500; t += step) {
      for (unsigned skip = random() % 4; skip > 0; --skip) p.Next();
      if (random() % 8 == 0) p.demuxer->Seek(int64(random() % 1000000) * length / 1000000);
      ASSERT_TRUE(p.demuxer->Seek(t));
      int64 const frame = std::min<int64>(t * 1000 / frameUs, film.frames - 1);
      int64 const ms = frame / film.gop * film.gop * frameUs / 1000;
      // Sound that lies in front of the key frame and still sounds with it may come first.
      auto packet = p.Next();
      for (; packet && !p.outputs[0]->Carries(packet->Media()); packet = p.Next())
        ASSERT_LE(ms, (packet->Pts() + packet->Duration()) / 1000000) << t;
      ASSERT_TRUE(packet && packet->IsKey() && (packet->Flags() & Packet::kDiscontinuity) != 0);
      ASSERT_EQ(ms, packet->Pts() / 1000000) << "seek to " << t;
      auto next = p.Next();
      ASSERT_TRUE(!silent || !next || (next->Flags() & Packet::kDiscontinuity) == 0) << "once";
      // And the next sound packet goes on from there.
      while (!silent && next && !p.outputs[1]->Carries(next->Media())) next = p.Next();
      if (silent || !next) continue;
      ASSERT_LE(std::abs(packet->Pts() - next->Pts()), next->Duration() + 1000000) << t;
    }
    p.demuxer->Seek(0);
    int64 last[2] = {};
    for (Got const& got : p.All()) last[got.track] = got.pts;
    EXPECT_TRUE(silent || std::abs(last[0] - last[1]) <= std::max<int64>(frameUs / 1000, 40))
        << "sound is in step to the end";
  }
}

// Two pictures and a sound at a time.
void RecordTwo(MemoryIO& io, int rounds) {
  Recording r(&io);
  r.Track(VideoMedia("h264", 320, 180)).Track(VideoMedia("hevc", 640, 360)).Track(SoundMedia());
  EXPECT_TRUE(r.Open());
  for (int i = 0; i < rounds; ++i)
    EXPECT_TRUE(r.Push(0, i % 10 == 0 ? KeyFrame("first") : Frame("first"), i % 10 == 0) &&
                r.Push(1, kStart + "\x26second", true) && r.Push(2, std::string(7680, 's'), true));
}

TEST(Demux, PlaysTheChosenVideoTrack) {
  MemoryIO io;
  RecordTwo(io, 20);
  Playing p(&io, 1);
  ASSERT_TRUE(p.Open());
  auto const shows = [&p](int wanted, char const* data) {
    int width = 0;
    p.outputs[0]->Media()->Get("width", width);
    EXPECT_EQ(wanted, width);
    EXPECT_THAT(p.NextGot().data, HasSubstr(data));
  };
  shows(640, "second");
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 0));
  shows(320, "first");
  EXPECT_EQ(39u, p.All().size());
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 9) && p.demuxer->Seek(0));
  EXPECT_EQ(1, p.NextGot().track) << "no such track: sound alone";
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 1));
  shows(640, "second");
  std::vector<std::string> reported;
  EXPECT_TRUE(p.demuxer->ParseFile([&](IMedia* media) {
    reported.push_back(media->Codec());
    return true;
  }));
  EXPECT_THAT(reported, ElementsAre("h264", "pcm"));
}

// A stream over records that a test makes up.
TEST(Demux, CursorSteps) {
  RegisterClasses();
  std::unique_ptr<IStream> s(IStream::New("h264", "h264", 0));
  EXPECT_FALSE(s->DemuxConfig(nullptr, nullptr)) << "no headers";
  int64 t = 50;
  EXPECT_EQ(s->end(), s->DemuxSeek(t, true)) << "no entries";
  EXPECT_TRUE(s->DemuxISEnd() && s->DemuxNext() == s->DemuxPrev() && s->DemuxPeek() == nullptr);
  for (unsigned duration : {40000u, 33000u, 27000u}) {
    ChunkParam e;
    e.duration = duration;
    e.flags = duration == 40000 ? 1 : 0;
    s->AddListChunk(e);
  }
  s->DemuxReset();
  s->DemuxNext();
  EXPECT_EQ(40, s->DemuxCurrentPts());
  EXPECT_EQ(s->begin(), s->DemuxPrev());
  EXPECT_EQ(7, s->DemuxCurrentPts()) << "the duration of the entry that was left";
  struct Seek {
    int64 to;
    bool key;
    int entry;
    int64 at;
  } const seeks[] = {{41, false, 1, 40},       {72, false, 1, 40},     {73, false, 2, 73},
                     {73, true, 0, 13},        {500, false, 2, 73},    {-5, false, 0, 0},
                     {INT64_MAX, true, 2, 73}, {INT64_MIN, true, 0, 0}};
  for (auto const& seek : seeks) {
    s->DemuxReset();
    int64 pts = seek.to;
    EXPECT_EQ(s->begin() + seek.entry, s->DemuxSeek(pts, seek.key)) << seek.to;
    EXPECT_EQ(seek.at, pts) << seek.to;
  }
}

// From the element's thread through a filter into a muxer: the copy is the file.
TEST(Demux, ReRecordsAFile) {
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
  ASSERT_TRUE(copy.Open() && filter.StatusChange(IStatus::kRunning));
  ASSERT_TRUE(p.demuxer->StatusChange(IStatus::kRunning) && messages.Reach(1));
  EXPECT_THAT(messages.All(), ElementsAre("eos"));
  EXPECT_TRUE(copy.Close() && p.demuxer->StatusChange(IStatus::kClosed));
  EXPECT_EQ("", Difference(from.bytes, to.bytes));
}

// The thread waits at the end of the stream: a seek or a mode makes it go on, another track does
// not.
TEST(Demux, GoesOnAfterTheEnd) {
  MemoryIO io;
  RecordTwo(io, 20);
  Playing p(&io);
  CaptureSink sink;
  for (IPort* output : p.outputs) IPort::Link(*output, *sink.AddInput());
  Messages messages(*p.demuxer);
  ASSERT_TRUE(p.Open() && p.demuxer->StatusChange(IStatus::kRunning) && messages.Reach(1));
  base::ConsoleCapture console;
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 1));
  EXPECT_TRUE(p.demuxer->Ended());
  EXPECT_TRUE(p.demuxer->Seek(0));
  EXPECT_TRUE(messages.Reach(2));
  EXPECT_TRUE(p.demuxer->PlayModeSwitch(PlayMode::kBack));
  EXPECT_TRUE(messages.Reach(3));
  EXPECT_THAT(messages.All(), ElementsAre("eos", "eos", "eos"));
  EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed));
}

// Everything that may be called while packets flow, called at once, and the cache switched. Each
// track's packets keep their order within a mode: sequence numbers only ever grow. Then one video
// track after the other.
TEST(Demux, ControlsWhilePacketsFlow) {
  MemoryIO io;
  RecordTwo(io, 500);
  std::map<std::string, unsigned> seq;
  std::atomic<int> packets{0}, torn{0}, videos[2] = {};
  CaptureSink sink([&](Packet& packet) {
    std::string const codec = packet.Media()->Codec();
    auto const [last, first] = seq.try_emplace(codec, packet.Seq());
    torn += !first && packet.Seq() <= last->second;
    last->second = packet.Seq();
    ++packets;
    if (codec != "pcm") ++videos[codec == "hevc"];
    return true;
  });
  FaultIO device(io);
  bool const cached = base::IClass::Find("CusAviDemuxer", true) != nullptr;
  Playing p(&device, 0, cached ? "CusAviDemuxer" : "AviDemuxer-avi-demuxer");
  for (IPort* output : p.outputs) IPort::Link(*output, *sink.AddInput());
  ASSERT_TRUE(p.Open() && p.demuxer->StatusChange(IStatus::kRunning));
  base::ConsoleCapture console;
  std::atomic<bool> stop{false};
  auto const repeat = [&](auto action) {
    return std::thread([&stop, action] {
      for (unsigned i = 1; !stop; i = i * 1103515245 + 12345) action(i >> 8);
    });
  };
  std::thread threads[] = {
      repeat([&](unsigned r) { p.demuxer->Seek(r % 20000); }),
      repeat([&](unsigned r) { p.demuxer->Seek(r % 3000); }),
      repeat([&](unsigned r) { p.demuxer->PlayModeSwitch(static_cast<PlayMode>(r % 6)); }),
      repeat([&](unsigned r) { p.demuxer->Set("plyVidCtrl", r % 3); }),
      repeat([&](unsigned r) { EXPECT_EQ(cached, p.demuxer->Set("vlcPreload", r % 2 != 0)); })};
  EXPECT_TRUE(Eventually([&] { return packets >= 3000; }));
  stop = true;
  for (auto& thread : threads) thread.join();
  p.demuxer->PlayModeSwitch(PlayMode::kNormal);
  for (unsigned const chosen : {1u, 0u}) {
    EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", chosen));
    int const before = videos[chosen], others = videos[1 - chosen];
    p.demuxer->Seek(0);
    EXPECT_TRUE(Eventually([&] { return videos[chosen] >= before + 100; }));
    EXPECT_LE(videos[1 - chosen], others + 1) << "one packet may have been on its way";
  }
  EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed));
  EXPECT_EQ(0, torn + device.Overlaps());
}

}  // namespace
}  // namespace kestro::test
