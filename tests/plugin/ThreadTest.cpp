// Pipelines whose operations are called from several threads at once: nothing hangs, races or gets
// lost.
#include <gmock/gmock.h>

#include <atomic>
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

using stream::PacketQueue;

bool HasCache() { return base::IClass::Find("CusAviDemuxer", true) != nullptr; }

// The queue's sink waits for the media of another track, so the source waits for room.
TEST(Threads, AFullQueueWithAWaitingSinkCanBeStopped) {
  for (std::string const first :
       {"queue", "queue's destructor", "source", "source paused", "link"}) {
    SCOPED_TRACE(first);
    Watchdog const watchdog(first);
    base::ConsoleCapture console;
    FilmIO io({100});
    Playing p(&io);
    CaptureSink sink;
    auto queue = std::make_unique<PacketQueue>();
    queue->Set("maxPackets", 2);
    auto const track = queue->AddTrack();
    EXPECT_TRUE(IPort::Link(*track.output, *sink.AddInput()));
    PacketQueue never;
    auto const other = never.AddTrack();
    EXPECT_TRUE(IPort::Link(*other.output, *sink.AddInput()));  // gets no media
    EXPECT_TRUE(IPort::Link(*p.outputs[0], *track.input));
    ASSERT_TRUE(queue->StatusChange(IStatus::kRunning));
    ASSERT_TRUE(p.Run());
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // it fills up
    bool stopped = true;
    if (first == "queue") stopped = queue->StatusChange(IStatus::kClosed);
    if (first == "queue's destructor") queue.reset();
    if (first == "source paused") stopped = p.Pause();
    EXPECT_TRUE(stopped);
    if (first == "link") p.outputs[0]->Unlink();
    EXPECT_TRUE(p.Close());
    EXPECT_EQ(0u, sink.packets.Count());
  }
}

// A packet handler may seek and switch; it may not close the elements that call it.
TEST(Threads, APacketHandlerControlsItsPipeline) {
  for (bool const queued : {false, true}) {
    SCOPED_TRACE(queued);
    Watchdog const watchdog("a packet handler");
    base::ConsoleCapture console;
    MemoryIO io;
    RecordTwoVideos(io, 200);
    Playing p(&io);
    PacketQueue queue;
    queue.Set("maxPackets", 2);
    std::atomic<int> calls{0}, accepted{0};
    CaptureSink sink([&](Packet& packet) {
      int const call = ++calls;
      if (call % 5 == 0) p.demuxer->Seek(call % 3000);
      if (call % 5 == 1) p.demuxer->Set("plyVidCtrl", call % 2);
      if (call % 5 == 2) p.demuxer->PlayModeSwitch(static_cast<PlayMode>(call / 5 % 5));
      if (call % 5 == 3) accepted += p.Close();
      if (call % 5 == 4) accepted += queued && queue.StatusChange(IStatus::kClosed);
      accepted += sink.StatusChange(IStatus::kClosed) + sink.Ports()[0]->Push(packet);
      return true;
    });
    for (IPort* output : p.outputs) {
      auto const track = queued ? queue.AddTrack() : PacketQueue::Track{sink.AddInput(), nullptr};
      if (queued) {
        EXPECT_TRUE(IPort::Link(*track.output, *sink.AddInput()));
      }
      EXPECT_TRUE(IPort::Link(*output, *track.input));
    }
    ASSERT_TRUE(queue.StatusChange(IStatus::kRunning));
    ASSERT_TRUE(p.Run());
    EXPECT_TRUE(Eventually([&] { return p.demuxer->Seek(0) && calls > 400; }));
    EXPECT_TRUE(p.Close()) << "while the handler seeks";
    EXPECT_TRUE(queue.StatusChange(IStatus::kClosed));
    EXPECT_EQ(0, accepted) << "of what is refused from inside";
  }
}

// One packet of the old track may still come after each switch; those of a track keep their order.
TEST(Threads, SwitchingTheVideoTrackLosesNothing) {
  base::ConsoleCapture console;
  MemoryIO io;
  RecordTwoVideos(io, 4000);
  Playing p(&io);
  Lines seen;  // codec and sequence number of the video packets
  CaptureSink sink([&](Packet& packet) {
    if (!packet.Media()->IsVideo()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    seen.Add(std::string(packet.Media()->Codec()) + " " + std::to_string(packet.Seq()));
    return true;
  });
  p.Link(sink);
  ASSERT_TRUE(p.Run());
  for (unsigned i = 1; i < 60; ++i) {
    p.demuxer->Set("plyVidCtrl", i % 2);
    ASSERT_TRUE(seen.Reach(seen.Count() + 3)) << "switch " << i;
    EXPECT_EQ(i % 2 != 0 ? "hevc" : "h264", seen.All().back().substr(0, 4)) << "switch " << i;
  }
  EXPECT_TRUE(p.Pause());
  unsigned next[2] = {0, 0}, lost[2] = {0, 0};
  for (std::string const& packet : seen.All()) {
    bool const second = packet[1] == 'e';
    auto const seq = static_cast<unsigned>(std::stoul(packet.substr(5)));
    if (next[second] != 0) lost[second] += seq - next[second];
    next[second] = seq + 1;
  }
  EXPECT_LE(lost[0], 30u);
  EXPECT_LE(lost[1], 30u);
  for (int i = 0; i < 200; ++i) {
    std::thread other([&] { p.demuxer->Set("plyVidCtrl", 0); });
    p.demuxer->Set("plyVidCtrl", 1);
    other.join();
    auto const packet = p.Next();
    ASSERT_TRUE(packet);
    EXPECT_TRUE(!packet->Media()->IsVideo() || packet->Media() == p.outputs[0]->Media().get())
        << "the packet is not of the offered track, pair " << i;
  }
}

// A demuxer that is destroyed, or closed, while a muxer opens with its media and packets flow.
TEST(Threads, MediaOutliveTheirDemuxer) {
  base::ConsoleCapture console;
  for (int i = 0; i < 60; ++i) {
    MemoryIO from, to;
    RecordTwoVideos(from, 30);
    Recording copy(&to);
    bool const cached = HasCache() && i % 2 != 0;
    auto p = std::make_unique<Playing>(&from, 0, cached ? "CusAviDemuxer" : "avi-demuxer");
    for (std::size_t k : {0u, 1u})
      EXPECT_TRUE(IPort::Link(*p->outputs[k], *copy.muxer->AddInput()));
    ASSERT_TRUE(copy.Open());
    ASSERT_TRUE(p->Run());
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
    if (i % 3 == 0) p->Close();
    p.reset();
    reader.join();
  }
}

// Random calls from four threads, from message handlers and packet handlers, to demuxer, queue and
// muxer. Two seconds of it, or KESTRO_STRESS_SECONDS.
TEST(Threads, EverythingAtOnce) {
  char const* const wanted = std::getenv("KESTRO_STRESS_SECONDS");
  int const seconds = wanted != nullptr ? std::atoi(wanted) : 2;
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  MemoryIO film;
  RecordTwoVideos(film, 100);
  for (unsigned round = 1; std::chrono::steady_clock::now() < end; ++round) {
    base::ConsoleCapture console;
    Watchdog const watchdog("round " + std::to_string(round));
    MemoryIO from(Text(film)), to;
    FaultIO device(from);
    Recording copy(&to, HasCache() && round % 4 == 3 ? "avi-muxer-vfi" : "avi-muxer");
    bool const cached = HasCache() && round % 3 == 0;
    Playing p(&device, round % 2, cached ? "CusAviDemuxer" : "avi-demuxer");
    auto queue = std::make_unique<PacketQueue>();
    queue->Set("maxPackets", 4);
    queue->Set("drop", round % 5 == 0);
    auto& d = *p.demuxer;
    std::function<void(unsigned)> const calls[] = {
        [&](unsigned r) { static_cast<void>(d.StatusChange(static_cast<int>(r % 4))); },
        [&](unsigned r) { static_cast<void>(queue->StatusChange(static_cast<int>(r % 4))); },
        [&](unsigned r) { static_cast<void>(copy.muxer->StatusChange(static_cast<int>(r % 4))); },
        [&](unsigned r) { p.outputs[r % 2]->Unlink(); },
        [&](unsigned r) {
          static_cast<void>(IPort::Link(*p.outputs[r % 2], *queue->Ports()[r / 2 % 2 * 2]));
        },
        [&](unsigned) { p.Run(); },
        [&](unsigned) { static_cast<void>(queue->StatusChange(IStatus::kRunning)); },
        [&](unsigned) { static_cast<void>(copy.muxer->StatusChange(IStatus::kRunning)); },
        [&](unsigned r) { d.Set("plyVidCtrl", r % 3); },
        [&](unsigned r) { d.PlayModeSwitch(static_cast<PlayMode>(r % 6)); },
        [&](unsigned r) { d.Set("vlcPreload", r % 2 != 0), d.Get("strdsize", r); },
        [&](unsigned r) { d.Seek(r % 5000); },
        [&](unsigned r) { d.Seek(r % 300); },
        [&](unsigned) {
          if (auto const media = p.outputs[0]->Media()) media->ExtraData();
        },
        [&](unsigned) {
          auto const media = queue->Ports()[0]->Media();
          if (media)
            static_cast<void>(
                queue->Ports()[0]->Push(*MakePacket(media.get(), KeyFrame("x"), true)));
        }};
    auto const control = [&](std::mt19937& random) {
      calls[random() % std::size(calls)](static_cast<unsigned>(random()));
    };
    auto const inside = [&] {
      static thread_local std::mt19937 random(round);
      control(random);
      return true;
    };
    CaptureSink handler([&](Packet&) { return inside(); });
    for (int k = 0; k < 2; ++k) {
      auto const track = queue->AddTrack();
      EXPECT_TRUE(IPort::Link(*p.outputs[k], *track.input));
      EXPECT_TRUE(
          IPort::Link(*track.output, *(round % 2 ? copy.muxer->AddInput() : handler.AddInput())));
    }
    d.OnMessage([&](auto&&...) { return inside(); });
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
    EXPECT_TRUE(p.Close());
    static_cast<void>(queue->StatusChange(IStatus::kClosed));
    if (round % 3 == 0) queue.reset();
    EXPECT_EQ(0, device.Overlaps()) << "reads at a time, round " << round;
    EXPECT_TRUE(p.Open()) << "afterwards, round " << round;
    EXPECT_TRUE(d.Seek(0)) << round;
    EXPECT_TRUE(p.Next()) << round;
  }
}

}  // namespace
}  // namespace kestro::test
