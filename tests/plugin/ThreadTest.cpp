// Pipelines whose operations are called from every thread at once: nothing hangs, is lost or races.
#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <random>
#include <thread>

#include "stream/PacketQueue.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"
#include "support/Film.h"
#include "support/Playing.h"
#include "support/Watchdog.h"

namespace kestro::test {
namespace {

using stream::ISink;
using stream::PacketQueue;

// Two pictures, of which the first track's carry parameter sets in the second key frame only, and
// audio.
void RecordTwo(MemoryIO& io, int rounds) {
  Recording r(&io);
  r.Track(VideoMedia("h264", 320, 180)).Track(VideoMedia("hevc", 640, 360)).Track(SoundMedia());
  EXPECT_TRUE(r.Open());
  for (int i = 0; i < rounds; ++i)
    EXPECT_TRUE(r.Push(0, i % 10 == 0 && i > 0 ? KeyFrame("first") : kStart + "\x65" + "first",
                       i % 10 == 0) &&
                r.Push(1, kStart + "\x26second", true) && r.Push(2, std::string(7680, 's'), true));
}

bool IsVideo(Packet const& packet, int track) {
  return std::string(packet.Media()->Codec()) == (track == 0 ? "h264" : "hevc");
}

// A full queue whose sink still waits for another track: whoever is stopped first, nothing hangs.
TEST(Threads, AFullQueueWithoutASinkCanBeLeft) {
  for (std::string const first :
       {"queue", "queue's destructor", "source", "source paused", "link"}) {
    Watchdog const watchdog(first);
    base::ConsoleCapture console;
    FilmIO io({100});
    Playing p(&io);
    CaptureSink sink;
    auto queue = std::make_unique<PacketQueue>();
    queue->Set("maxPackets", 2);
    auto const track = queue->AddTrack();
    IPort::Link(*track.output, *sink.AddInput());
    PacketQueue never;
    auto const other = never.AddTrack();
    IPort::Link(*other.output, *sink.AddInput());  // gets no media
    IPort::Link(*p.outputs[0], *track.input);
    ASSERT_TRUE(p.Open() && queue->StatusChange(IStatus::kRunning));
    ASSERT_TRUE(p.demuxer->StatusChange(IStatus::kRunning));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // it fills up
    bool left = true;
    if (first == "queue") left = queue->StatusChange(IStatus::kClosed);
    if (first == "queue's destructor") queue.reset();
    if (first == "source paused") left = p.demuxer->StatusChange(IStatus::kPaused);
    EXPECT_TRUE(left) << first;
    if (first == "link") p.outputs[0]->Unlink();
    EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed)) << first;
    EXPECT_EQ(0u, sink.packets.Count()) << first;
  }
}

// All that a packet handler may call, directly and after a queue, and what it may not.
TEST(Threads, APacketHandlerCallsWhatItLikes) {
  for (bool const queued : {false, true}) {
    Watchdog const watchdog(queued ? "a handler after a queue" : "a handler");
    base::ConsoleCapture console;
    MemoryIO io;
    RecordTwo(io, 200);
    Playing p(&io);
    PacketQueue queue;
    queue.Set("maxPackets", 2);
    std::atomic<int> calls{0}, accepted{0};
    CaptureSink sink([&](Packet& packet) {
      switch (++calls % 5) {
        case 0:
          p.demuxer->Seek(calls % 3000);
          break;
        case 1:
          p.demuxer->Set("plyVidCtrl", calls % 2);
          break;
        case 2:
          p.demuxer->PlayModeSwitch(static_cast<PlayMode>(calls / 5 % 5));
          break;
        case 3:
          accepted += p.demuxer->StatusChange(IStatus::kClosed);
          break;
        default:
          accepted += queued && queue.StatusChange(IStatus::kClosed);
      }
      accepted += sink.StatusChange(IStatus::kClosed) + sink.Ports()[0]->Push(packet);
      return true;
    });
    for (IPort* output : p.outputs) {
      auto const track = queued ? queue.AddTrack() : PacketQueue::Track{sink.AddInput(), nullptr};
      if (queued) IPort::Link(*track.output, *sink.AddInput());
      IPort::Link(*output, *track.input);
    }
    ASSERT_TRUE(p.Open() && (!queued || queue.StatusChange(IStatus::kRunning)));
    ASSERT_TRUE(p.demuxer->StatusChange(IStatus::kRunning));
    EXPECT_TRUE(Eventually([&] { return p.demuxer->Seek(0) && calls > 400; }));
    EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed)) << "while the handler seeks";
    EXPECT_TRUE(!queued || queue.StatusChange(IStatus::kClosed));
    EXPECT_EQ(0, accepted) << "refused from inside";
  }
}

// The chosen track's packets come, all of them, and choice and outputs agree.
TEST(Threads, SwitchingTheVideoTrackLosesNothing) {
  base::ConsoleCapture console;
  MemoryIO io;
  RecordTwo(io, 4000);
  Playing p(&io);
  std::mutex mutex;
  std::vector<std::pair<bool, unsigned>> seen;  // second track, sequence number
  CaptureSink sink([&](Packet& packet) {
    if (!packet.Media()->IsVideo()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::lock_guard lock(mutex);
    seen.emplace_back(IsVideo(packet, 1), packet.Seq());
    return true;
  });
  for (IPort* output : p.outputs) IPort::Link(*output, *sink.AddInput());
  ASSERT_TRUE(p.Open() && p.demuxer->StatusChange(IStatus::kRunning));
  auto const count = [&] {
    std::lock_guard lock(mutex);
    return seen.size();
  };
  for (unsigned i = 1; i < 60; ++i) {
    p.demuxer->Set("plyVidCtrl", i % 2);
    std::size_t const before = count();
    ASSERT_TRUE(Eventually([&] { return count() >= before + 3; })) << "switch " << i;
    std::lock_guard lock(mutex);
    EXPECT_EQ(i % 2 != 0, seen.back().first) << "switch " << i;
  }
  EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kPaused));
  unsigned next[2] = {0, 0}, lost[2] = {0, 0};
  for (auto const& [second, seq] : seen) {
    if (next[second] != 0) lost[second] += seq - next[second];
    next[second] = seq + 1;
  }
  // One packet of the old track may go with each switch.
  EXPECT_LE(lost[0], 30u);
  EXPECT_LE(lost[1], 30u);
  for (int i = 0; i < 200; ++i) {
    std::thread other([&] { p.demuxer->Set("plyVidCtrl", 0); });
    p.demuxer->Set("plyVidCtrl", 1);
    other.join();
    auto const shown = p.outputs[0]->Media();
    auto const packet = p.Next();
    ASSERT_TRUE(shown && packet);
    EXPECT_TRUE(!packet->Media()->IsVideo() || packet->Media() == shown.get()) << "pair " << i;
  }
}

// A seek made while a read fails is not forgotten.
TEST(Threads, SeeksDuringAFailingReadPlayOn) {
  base::ConsoleCapture console;
  FilmIO film({50, 10});
  FaultIO device(film);
  Playing p(&device);
  CaptureSink sink;
  for (int i = 0; i < 2; ++i) IPort::Link(*p.outputs[i], *sink.AddInput());
  ASSERT_TRUE(p.Open() && p.demuxer->StatusChange(IStatus::kRunning));
  for (int i = 0; i < 100; ++i) {
    int const failures = device.Failures();
    int failing = 0;  // which read
    ASSERT_TRUE(Eventually([&] {
      if (device.Failures() > failures) return true;
      if (int const reads = device.Count(FaultIO::kRead); reads > failing)
        device.Fail({FaultIO::kRead, failing = reads + 10});
      p.demuxer->Seek(0);
      return false;
    })) << i;
    std::size_t const before = sink.packets.Count();
    p.demuxer->Seek(i % 2 * 400);
    ASSERT_TRUE(sink.packets.Reach(before + 1)) << i;
  }
}

// A demuxer that is destroyed, or closed, while a muxer opens with its media and packets flow.
TEST(Threads, MediaOutliveTheirDemuxer) {
  base::ConsoleCapture console;
  bool const cached = base::IClass::Find("CusAviDemuxer", true) != nullptr;
  for (int i = 0; i < 60; ++i) {
    MemoryIO from, to;
    RecordTwo(from, 30);
    Recording copy(&to);
    auto p = std::make_unique<Playing>(&from, 0, cached && i % 2 ? "CusAviDemuxer" : "avi-demuxer");
    for (std::size_t k : {0u, 1u}) IPort::Link(*p->outputs[k], *copy.muxer->AddInput());
    ASSERT_TRUE(copy.Open() && p->Open() && p->demuxer->StatusChange(IStatus::kRunning));
    std::thread reader([media = p->outputs[0]->Media()] {
      for (int n = 0; n < 100; ++n) {
        unsigned char* sps = nullptr;
        int size = -1;
        if (!media->Get("sps", sps)) continue;
        EXPECT_TRUE(media->Get("isps", size));
        EXPECT_EQ(0x67, sps[4]);
      }
    });
    std::this_thread::sleep_for(std::chrono::microseconds(50 * i));
    if (i % 3 == 0) p->demuxer->StatusChange(IStatus::kClosed);
    p.reset();
    reader.join();
  }
}

// Random calls of everything from several threads, over demuxer, queue and muxer or handler. For
// KESTRO_STRESS_SECONDS, two where it is not set.
TEST(Threads, EverythingAtOnce) {
  char const* const wanted = std::getenv("KESTRO_STRESS_SECONDS");
  int const seconds = wanted != nullptr ? std::atoi(wanted) : 2;
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  bool const cached = base::IClass::Find("CusAviDemuxer", true) != nullptr;
  MemoryIO film;
  RecordTwo(film, 100);
  for (unsigned round = 1; std::chrono::steady_clock::now() < end; ++round) {
    base::ConsoleCapture console;
    Watchdog const watchdog("round " + std::to_string(round));
    MemoryIO from(Text(film)), to;
    Recording copy(&to, cached && round % 4 == 3 ? "avi-muxer-vfi" : "avi-muxer");
    Playing p(&from, round % 2, cached && round % 3 == 0 ? "CusAviDemuxer" : "avi-demuxer");
    auto queue = std::make_unique<PacketQueue>();
    queue->Set("maxPackets", 4);
    queue->Set("drop", round % 5 == 0);
    auto const control = [&](std::mt19937& random) {
      switch (random() % 16) {
        case 0:
          p.demuxer->StatusChange(static_cast<int>(random() % 4));
          break;
        case 1:
          queue->StatusChange(static_cast<int>(random() % 4));
          break;
        case 2:
          copy.muxer->StatusChange(static_cast<int>(random() % 4));
          break;
        case 3:
          p.outputs[random() % 2]->Unlink();
          break;
        case 4:
          IPort::Link(*p.outputs[random() % 2], *queue->Ports()[random() % 2 * 2]);
          break;
        case 5:
          p.demuxer->StatusChange(IStatus::kRunning);
          break;
        case 6:
          queue->StatusChange(IStatus::kRunning);
          break;
        case 7:
          copy.muxer->StatusChange(IStatus::kRunning);
          break;
        case 8:
          p.demuxer->Set("plyVidCtrl", static_cast<unsigned>(random() % 3));
          break;
        case 9:
          p.demuxer->PlayModeSwitch(static_cast<PlayMode>(random() % 6));
          break;
        case 10:
          if (auto const media = p.outputs[0]->Media()) media->ExtraData();
          break;
        case 11: {
          unsigned size = 0;
          p.demuxer->Get("strdsize", size);
          p.demuxer->Set("vlcPreload", random() % 2 != 0);
          break;
        }
        case 12:
          if (auto const media = queue->Ports()[0]->Media()) {
            auto const packet = MakePacket(media.get(), KeyFrame("x"), true);
            queue->Ports()[0]->Push(*packet);
          }
          break;
        default:
          p.demuxer->Seek(static_cast<int64>(random() % 5000));
          break;
      }
    };
    auto const inside = [&] {
      static thread_local std::mt19937 random(round);
      control(random);
      return true;
    };
    CaptureSink handler([&](Packet&) { return inside(); });
    for (int k = 0; k < 2; ++k) {
      auto const track = queue->AddTrack();
      IPort::Link(*p.outputs[k], *track.input);
      IPort::Link(*track.output, *(round % 2 ? copy.muxer->AddInput() : handler.AddInput()));
    }
    p.demuxer->OnMessage([&](auto&&...) { return inside(); });
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        std::mt19937 random(round * 8 + t);
        while (!stop) control(random);
      });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    stop = true;
    for (auto& thread : threads) thread.join();
    EXPECT_TRUE(p.demuxer->StatusChange(IStatus::kClosed));
    queue->StatusChange(IStatus::kClosed);
    if (round % 3 == 0) queue.reset();
    // What is left still works.
    EXPECT_TRUE(p.Open() && p.demuxer->Seek(0)) << round;
    EXPECT_TRUE(p.Next()) << round;
  }
}

}  // namespace
}  // namespace kestro::test
