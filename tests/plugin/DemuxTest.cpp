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
#include "support/Playing.h"

namespace kestro::test {
namespace {

using plugin::avi::ChunkParam;
using plugin::avi::IStream;
using testing::ElementsAre;
using testing::HasSubstr;

struct Film {
  int frames = 100;
  int gop = 10;
  base::Fraction rate{25, 1};
  bool sound = true;
  int soundRate = 48000, channels = 2, samples = 1920;
};

// Frames that know their number, sound beside them in time order.
void Record(MemoryIO& io, Film const& film) {
  Recording r(&io);
  r.muxer->Set("constFrameRate", film.rate);
  r.Track(VideoMedia("h264", 320, 180, film.rate));
  if (film.sound) r.Track(SoundMedia(film.soundRate, film.channels, film.samples));
  ASSERT_TRUE(r.Open());
  int64 blocks = 0;
  std::string const sound(static_cast<std::size_t>(film.samples * film.channels * 2), 's');
  for (int i = 0; i < film.frames; ++i) {
    bool const key = i % film.gop == 0;
    std::string const payload = "frame " + std::to_string(i);
    ASSERT_TRUE(r.Push(0, key ? KeyFrame(payload) : Frame(payload), key));
    // Sound is due when it starts at the frame's time or before.
    for (; film.sound &&
           blocks * film.samples * film.rate.num <= int64(i) * film.soundRate * film.rate.den;
         ++blocks)
      ASSERT_TRUE(r.Push(1, sound, true));
  }
  ASSERT_TRUE(r.Close());
}

TEST(Demux, DeliversWhatWasRecorded) {
  MemoryIO io;
  Record(io, {4, 2, {25, 1}, true, 48000, 2, 1920});
  base::Store32(&io.bytes[Text(io).rfind("strh") + 40], 0);  // the index tells how much sound
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  EXPECT_EQ(160, p.demuxer->Duration());
  auto const key = [](int i) {
    std::string stored = StoredKeyFrame("frame " + std::to_string(i));
    std::fill_n(stored.begin(), stored.find(kStart + "\x65"), '\0');  // all before the slice
    return stored;
  };
  auto const plain = [](int i) { return StoredFrame("frame " + std::to_string(i)); };
  std::string const sound(7680, 's');
  EXPECT_THAT(p.All(),
              ElementsAre(Got{0, 0, true, false, key(0)}, Got{1, 0, true, false, sound},
                          Got{0, 40, false, false, plain(1)}, Got{1, 40, true, false, sound},
                          Got{0, 80, true, false, key(2)}, Got{1, 80, true, false, sound},
                          Got{0, 120, false, true, plain(3)}, Got{1, 120, true, true, sound}));

  // The media say again what was recorded.
  auto* video = p.outputs[0]->Media();
  auto* audio = p.outputs[1]->Media();
  auto const values = [](IMedia* media, std::initializer_list<char const*> keys) {
    std::vector<int> all;
    for (char const* key : keys) EXPECT_TRUE(media->Get(key, all.emplace_back(-1))) << key;
    return all;
  };
  EXPECT_THAT(values(video, {"width", "height", "gop", "interlace"}), ElementsAre(320, 180, 2, 0));
  EXPECT_THAT(values(audio, {"rate", "channel", "depth", "width", "samples"}),
              ElementsAre(48000, 2, 16, 2, 1920));
  base::Fraction fps;
  EXPECT_TRUE(video->Get("framerate", fps) && fps == base::Fraction(25, 1));
  std::string const sets = kStart + "\x67sps" + kStart + "\x68pps";
  EXPECT_EQ(sets, std::string(video->ExtraData().begin(), video->ExtraData().end()));
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
      r.Track(VideoMedia(c.codec));
      ASSERT_TRUE(r.Open());
      ASSERT_TRUE(r.Push(0, sets + kStart + c.sei + "sei" + slice, true));
    }
    Playing p(&io);
    ASSERT_TRUE(p.Open());
    IMedia& media = *p.outputs[0]->Media();
    EXPECT_EQ(sets, std::string(media.ExtraData().begin(), media.ExtraData().end()));
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

// The key frame at or before a time, from wherever play stood, and sound from there.
void ExpectExactSeeks(Film const& film, int64 step) {
  MemoryIO io;
  Record(io, film);
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  int64 const frameUs = p.demuxer->Duration() * 1000 / film.frames;
  int64 const length = p.demuxer->Duration();
  std::mt19937 random(1);
  for (int64 t = 0; t <= length + 500; t += step) {
    for (int skip = static_cast<int>(random() % 4); skip > 0; --skip) p.Next();
    if (random() % 8 == 0)
      p.demuxer->Seek(static_cast<int64>(random() % 1000000) * length / 1000000);
    ASSERT_TRUE(p.demuxer->Seek(t));
    int64 const frame = std::min<int64>(t * 1000 / frameUs, film.frames - 1);
    int64 const key = frame / film.gop * film.gop;
    // Sound that lies in front of the key frame and still sounds with it may come first.
    auto packet = p.Next();
    for (; packet && packet->Media() != p.outputs[0]->Media(); packet = p.Next())
      ASSERT_LE(key * frameUs / 1000, (packet->Pts() + packet->Duration()) / 1000000) << t;
    ASSERT_TRUE(packet);
    ASSERT_EQ(key * frameUs / 1000, packet->Pts() / 1000000) << "seek to " << t;
    ASSERT_TRUE(packet->IsKey());
    ASSERT_TRUE((packet->Flags() & Packet::kDiscontinuity) != 0);
    if (!film.sound) {
      auto const next = p.Next();
      ASSERT_TRUE(!next || (next->Flags() & Packet::kDiscontinuity) == 0) << "only once";
    }
    if (!film.sound || t % 7 != 0) continue;
    // And the next sound packet goes on from there.
    for (auto sound = p.Next(); sound; sound = p.Next())
      if (sound->Media() == p.outputs[1]->Media()) {
        int64 const behind = packet->Pts() - sound->Pts();
        ASSERT_LE(std::abs(behind), sound->Duration() + 1000000) << t;
        break;
      }
  }
}

TEST(Demux, SeeksToTheKeyFrameBefore) {
  for (Film const& film :
       {Film{100, 10, {25, 1}}, Film{95, 25, {30, 1}, true, 8000, 1, 320}, Film{40, 1, {10, 1}},
        Film{61, 30, {30000, 1001}, false}, Film{7, 100, {25, 1}}})
    ExpectExactSeeks(film, 10);
  // Beyond 35.8 minutes the clocks of the forward search do not suffice; seeking does not notice.
  ExpectExactSeeks({45 * 60 * 25, 50, {25, 1}, false}, 3333);
}

// Ten minutes of sound and picture drift apart by less than a block.
TEST(Demux, SoundStaysInStep) {
  for (auto [rate, channels] : {std::pair(8000, 1), std::pair(8000, 2), std::pair(48000, 1)}) {
    MemoryIO io;
    Record(io, {10 * 60 * 25, 25, {25, 1}, true, rate, channels, rate / 25});
    Playing p(&io);
    ASSERT_TRUE(p.Open());
    int64 picture = 0, sound = 0;
    while (auto const packet = p.Next()) {
      (packet->Media() == p.outputs[0]->Media() ? picture : sound) = packet->Pts() / 1000000;
      ASSERT_LE(std::abs(picture - sound), 40);
    }
    EXPECT_EQ(10 * 60 * 1000 - 40, sound);
  }
}

TEST(Demux, FastAndBackVisitEveryKeyFrameOnce) {
  MemoryIO io;
  Record(io, {50, 10, {25, 1}, true});
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  auto& d = *p.demuxer;
  EXPECT_TRUE(p.Next() && d.PlayModeSwitch(PlayMode::kBack));
  EXPECT_THAT(p.Times(), ElementsAre()) << "the first was seen last";
  EXPECT_TRUE(d.Seek(0) && d.PlayModeSwitch(PlayMode::kFast));
  EXPECT_THAT(p.Times(), ElementsAre(0, 400, 800, 1200, 1600));
  EXPECT_TRUE(d.PlayModeSwitch(PlayMode::kBack));
  EXPECT_THAT(p.Times(), ElementsAre(1200, 800, 400, 0)) << "1600 was shown last";
  EXPECT_TRUE(d.PlayModeSwitch(PlayMode::kFast));
  EXPECT_THAT(p.Times(), ElementsAre(400, 800, 1200, 1600));
  for (int64 from : {900, 800, 1999, 5000}) {
    d.Seek(from);
    d.PlayModeSwitch(PlayMode::kBack);
    EXPECT_EQ(from >= 1600 ? 1600 : 800, p.NextGot().pts) << "the key frame at " << from;
    EXPECT_EQ(from >= 1600 ? 1200 : 400, p.NextGot().pts);
    d.PlayModeSwitch(PlayMode::kFast);
    EXPECT_EQ(from >= 1600 ? 1600 : 800, p.NextGot().pts);
  }
  // From the middle of normal play: backwards from what was shown.
  d.Seek(800);
  d.PlayModeSwitch(PlayMode::kNormal);
  for (int i = 0; i < 7; ++i) p.Next();
  d.PlayModeSwitch(PlayMode::kBack);
  EXPECT_THAT(p.Times(), ElementsAre(800, 400, 0));
  // The last key frame of either way carries the mark.
  for (auto [mode, from] : {std::pair(PlayMode::kFast, 0), std::pair(PlayMode::kBack, 1600)}) {
    d.Seek(from);
    d.PlayModeSwitch(mode);
    std::vector<bool> ends;
    for (Got const& got : p.All()) ends.push_back(got.end);
    EXPECT_THAT(ends, ElementsAre(false, false, false, false, true));
  }
  EXPECT_FALSE(d.PlayModeSwitch(static_cast<PlayMode>(7)));
  EXPECT_EQ(-1, p.NextGot().track) << "and the mode is as it was";
  d.Seek(0);
  EXPECT_EQ(0, p.NextGot().pts) << "a seek after the end plays again";
}

TEST(Demux, OneKindAlone) {
  MemoryIO io;
  Record(io, {20, 5, {25, 1}, true});
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  p.demuxer->PlayModeSwitch(PlayMode::kVideo);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(0, p.NextGot().track);
  p.demuxer->PlayModeSwitch(PlayMode::kAudio);
  EXPECT_EQ(1, p.NextGot().track);
  p.demuxer->PlayModeSwitch(PlayMode::kNormal);
  Got const next = p.NextGot();
  EXPECT_EQ(200, next.pts) << "the key frame before the sound at 360";
}

// Two video tracks: the chosen one plays, and only that.
TEST(Demux, PlaysTheChosenVideoTrack) {
  MemoryIO io;
  {
    Recording r(&io);
    r.Track(VideoMedia("h264", 320, 180)).Track(VideoMedia("hevc", 640, 360)).Track(SoundMedia());
    ASSERT_TRUE(r.Open());
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(r.Push(0, KeyFrame("first"), true));
      ASSERT_TRUE(r.Push(1, kStart + std::string("\x26") + "second", true));
      ASSERT_TRUE(r.Push(2, std::string(7680, 's'), true));
    }
  }
  auto const width = [](Playing& p) {
    int w = 0;
    p.outputs[0]->Media()->Get("width", w);
    return w;
  };
  Playing p(&io, 1);
  ASSERT_TRUE(p.Open());
  EXPECT_EQ(640, width(p));
  EXPECT_THAT(p.NextGot().data, HasSubstr("second"));
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 0));
  EXPECT_EQ(320, width(p));
  auto const rest = p.All();
  EXPECT_EQ(20, std::count_if(rest.begin(), rest.end(), [](Got const& got) {
              return got.track == 0 && got.data.find("first") < got.data.size();
            }));
  EXPECT_EQ(40u, rest.size());
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 9));
  p.demuxer->Seek(0);
  EXPECT_EQ(1, p.NextGot().track) << "no such track: sound alone";
  EXPECT_TRUE(p.demuxer->Set("plyVidCtrl", 1));
  EXPECT_EQ(640, width(p));
  EXPECT_THAT(p.NextGot().data, HasSubstr("second"));
  std::vector<std::string> reported;
  EXPECT_TRUE(p.demuxer->ParseFile([&](IMedia* media) {
    reported.push_back(media->Codec());
    return true;
  }));
  EXPECT_THAT(reported, ElementsAre("h264", "pcm"));
}

TEST(Demux, TracksHaveTwoDigits) {
  MemoryIO io;
  {
    Recording r(&io);
    for (int i = 0; i < 12; ++i) r.Track(SoundMedia());
    ASSERT_TRUE(r.Open());
    for (int i = 0; i < 12; ++i) ASSERT_TRUE(r.Push(i, "sound", true));
  }
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  std::map<IMedia const*, int> packets;
  while (auto const packet = p.Next()) ++packets[packet->Media()];
  EXPECT_EQ(12u, packets.size());
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
  s->DemuxReset();
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

// Records whose chunk cannot be read, is beyond the end, or is larger than the file.
TEST(Demux, DamagedIndexIsReported) {
  MemoryIO io;
  Record(io, {3, 3, {25, 1}, false});
  auto const index = static_cast<std::size_t>(io.bytes.size() - 3 * 16);
  auto const patch = [&](unsigned entry, unsigned field, unsigned value) {
    base::Store32(&io.bytes[index + entry * 16 + field * 4], value);
  };
  patch(0, 3, 0xFFFFFFFF);  // size
  patch(1, 2, 0xFFFFFFF0);  // position, negative as it is read
  patch(2, 0, base::Convert4("xxdc"));
  Playing p(&io);
  ASSERT_TRUE(p.Open());
  auto const all = p.Next();
  ASSERT_TRUE(all);
  EXPECT_LE(all->Size(), static_cast<int>(io.bytes.size()));
  base::ConsoleCapture console;
  EXPECT_FALSE(p.Next());
  EXPECT_EQ(1, p.failures);
  EXPECT_THAT(console.Text(),
              HasSubstr("/GetPacket:\tpkt == (Packet*)-1,IStream GetPacket error!\n"));
}

TEST(Demux, UnusableFilesAreRefusedOrSilent) {
  base::ConsoleCapture console;
  MemoryIO empty;
  Playing nothing(&empty);
  EXPECT_EQ(nullptr, nothing.demuxer->GeneratePacket(nullptr)) << "before Open";
  EXPECT_FALSE(nothing.Open());
  EXPECT_THAT(console.Text(), HasSubstr("/Open:\t!Parse(io)\n"));
  EXPECT_THAT(console.Text(), HasSubstr("/Open:\t!parseFile()\n"));
  EXPECT_EQ(IStatus::kClosed, nothing.demuxer->CurrentStatus());
  MemoryIO noise(std::string(1000, 'n'));
  Playing silent(&noise);
  EXPECT_TRUE(silent.Open());
  EXPECT_EQ(-1, silent.NextGot().track);
  EXPECT_TRUE(silent.demuxer->Seek(5));
  for (int mode = 0; mode < 5; ++mode) {
    EXPECT_TRUE(silent.demuxer->PlayModeSwitch(static_cast<PlayMode>(mode)));
    EXPECT_EQ(-1, silent.NextGot().track);
  }
  base::AttrSet attrs;
  attrs.Add("Register", "AviDemuxer-avi-demuxer");
  std::unique_ptr<stream::IDemuxer> missing(base::IClass::New<stream::IDemuxer>(attrs));
  missing->Set("path", "/no/such/file.avi");
  EXPECT_FALSE(missing->StatusChange(IStatus::kOpen));
}

// From the element's thread through a filter into a muxer: the copy is the file.
TEST(Demux, ReRecordsAFile) {
  MemoryIO from, to;
  Record(from, {200, 10, {25, 1}, true});
  Recording copy(&to);
  stream::ParameterSetFilter filter;
  Playing p(&from);
  for (std::size_t i = 0; i < 2; ++i) {
    auto const track = filter.AddTrack();
    ASSERT_TRUE(IPort::Link(*p.outputs[i], *track.input));
    ASSERT_TRUE(IPort::Link(*track.output, *copy.muxer->AddInput()));
  }
  std::atomic<bool> ended{false};
  p.demuxer->OnMessage([&](stream::IElement&, char const* type, char const*) {
    ended = std::string(type) == "eos";
    return true;
  });
  ASSERT_TRUE(copy.Open() && filter.StatusChange(IStatus::kRunning));
  ASSERT_TRUE(p.demuxer->StatusChange(IStatus::kRunning));
  while (!ended) std::this_thread::yield();
  EXPECT_TRUE(copy.Close());
  EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed));
  EXPECT_EQ("", Difference(from.bytes, to.bytes));
}

// Everything that may be called while packets flow, called at once. Each track's packets keep their
// order within a mode: sequence numbers only ever grow. Then one video track after the other.
TEST(Demux, ControlsWhilePacketsFlow) {
  MemoryIO io;
  {
    Recording r(&io);
    r.Track(VideoMedia()).Track(VideoMedia("hevc")).Track(SoundMedia());
    ASSERT_TRUE(r.Open());
    for (int i = 0; i < 500; ++i) {
      r.Push(0, i % 10 == 0 ? KeyFrame("first") : Frame("first"), i % 10 == 0);
      r.Push(1, kStart + std::string("\x26") + "second", true);
      r.Push(2, std::string(100, 's'), true);
    }
  }
  std::map<std::string, unsigned> seq;
  std::atomic<int> packets{0}, torn{0}, videos[2] = {};
  CaptureSink sink([&](Packet& packet) {
    auto& last = seq[packet.Media()->Codec()];
    torn += last > 0 && packet.Seq() <= last;
    last = packet.Seq();
    ++packets;
    if (packet.Media()->IsVideo()) ++videos[packet.Media()->Codec() == std::string("hevc")];
    return true;
  });
  Playing p(&io);
  for (IPort* output : p.outputs) IPort::Link(*output, *sink.AddInput());
  ASSERT_TRUE(p.Open());
  ASSERT_TRUE(p.demuxer->StatusChange(IStatus::kRunning));
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
      repeat([&](unsigned r) { p.demuxer->Set("plyVidCtrl", r % 3); })};
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
  EXPECT_EQ(0, torn);
}

}  // namespace
}  // namespace kestro::test
