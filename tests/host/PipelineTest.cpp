// Elements, ports and links, and what crosses threads between them.
#include <gtest/gtest.h>

#include <atomic>

#include "stream/IMuxer.h"
#include "support/Fakes.h"
#include "support/FaultIO.h"

namespace kestro::stream {
namespace {

using base::ConsoleCapture;
using test::CaptureSink;
using test::Messages;
using test::NewMedia;
using test::NewPacket;
using test::PacketRef;
using test::ScriptSource;
using Texts = std::vector<std::string>;

// Records the operations that a change of state takes; those in `failing` fail.
class Stepper : public IStatus {
 public:
  bool Open() override { return Step('O'); }
  bool Start() override { return Step('S'); }
  bool Pause() override { return Step('P'); }
  bool Resume() override { return Step('R'); }
  bool Stop() override { return Step('T'); }
  bool Close() override { return Step('C'); }
  bool Step(char what) {
    steps += what;
    return failing.find(what) == failing.npos;
  }
  std::string steps, failing;
};

TEST(Status, StepsBetweenNeighbours) {
  struct {
    int from, to;
    char const* failing;
    char const* steps;
    bool ok;
    int reached;
  } const table[] = {
      {0, 3, "", "OSP", true, 3},  {3, 0, "", "TC", true, 0},   {3, 2, "", "R", true, 2},
      {3, 1, "", "T", true, 1},    {2, 2, "", "", true, 2},     {0, 2, "O", "O", false, 0},
      {0, 3, "S", "OS", false, 1}, {3, 0, "T", "TC", false, 0}, {2, 0, "TC", "TC", false, 0},
      {1, 4, "", "", false, 1},    {1, -1, "", "", false, 1},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(testing::Message() << row.from << " to " << row.to << " failing " << row.failing);
    Stepper element;
    ASSERT_TRUE(element.StatusChange(row.from));
    element.steps.clear();
    element.failing = row.failing;
    EXPECT_EQ(element.StatusChange(row.to), row.ok);
    EXPECT_EQ(element.steps, row.steps);
    EXPECT_EQ(element.CurrentStatus(), row.reached);
  }
}

TEST(Port, MatchesWholeCodecNames) {
  CaptureSink sink;
  IPort const two(sink, true, "pcm,h264"), any(sink, true, "*"), none(sink, true, "");
  for (char const* codec : {"pcm", "h264"}) EXPECT_TRUE(two.Match(codec) && any.Match(codec));
  for (char const* codec : {"h26", "h2645", "", "*", "pcm,h264"})
    EXPECT_FALSE(two.Match(codec) || none.Match(codec)) << codec;
  EXPECT_FALSE(any.Match(nullptr));
}

TEST(Port, LinksCarryMedia) {
  ScriptSource source;
  CaptureSink any, sound;
  IPort* out = source.AddOutput();
  IPort* spare = source.AddOutput();
  IPort* anyIn = any.AddInput();
  IPort* soundIn = sound.AddInput("pcm");
  auto const video = NewMedia("h264"), audio = NewMedia("pcm"), other = NewMedia("pcm");

  EXPECT_FALSE(IPort::Link(*anyIn, *out)) << "the wrong way round";
  EXPECT_FALSE(IPort::Link(*out, *spare));
  EXPECT_TRUE(IPort::Link(*out, *anyIn));
  EXPECT_FALSE(IPort::Link(*spare, *anyIn)) << "linked already";
  EXPECT_TRUE(IPort::Link(*out, *soundIn));
  EXPECT_FALSE(out->Offer(video.get())) << "one of two does not take it";
  EXPECT_EQ(out->Media(), nullptr);
  EXPECT_EQ(anyIn->Media(), nullptr) << "nobody is left with a refused track";

  EXPECT_TRUE(out->Offer(audio.get()));
  EXPECT_EQ(soundIn->Media(), audio.get());
  EXPECT_FALSE(out->Offer(other.get())) << "keeps the first";
  EXPECT_EQ(anyIn->Media(), audio.get());
  EXPECT_TRUE(out->Offer(nullptr));
  EXPECT_EQ(soundIn->Media(), nullptr);
  EXPECT_EQ(audio->Count(), 1);

  soundIn->Unlink();
  EXPECT_FALSE(soundIn->Linked());
  EXPECT_TRUE(out->Linked());
  EXPECT_TRUE(out->Offer(video.get()));
  EXPECT_FALSE(IPort::Link(*out, *soundIn)) << "offered along, and refused";
  EXPECT_FALSE(soundIn->Linked());
  out->Unlink();
  EXPECT_FALSE(anyIn->Linked());
}

TEST(Port, EveryLinkedSinkGetsThePacket) {
  ScriptSource source;
  IPort* out = source.AddOutput();
  auto const eats = [](Packet& packet) {
    packet.Offset(packet.Offset() + 2);
    return true;
  };
  CaptureSink first(eats), refusing([](Packet&) { return false; });
  auto last = std::make_unique<CaptureSink>(eats);
  auto const media = NewMedia("txt");
  auto const packet = PacketRef::Take(NewPacket("abcdef", media.get()));
  EXPECT_FALSE(out->Push(*packet)) << "no link";
  EXPECT_TRUE(out->Offer(media.get()));
  EXPECT_TRUE(IPort::Link(*out, *first.AddInput()));
  EXPECT_TRUE(IPort::Link(*out, *last->AddInput()));
  EXPECT_TRUE(out->Push(*packet));
  EXPECT_EQ(first.packets.All(), Texts{"abcdef"});
  EXPECT_EQ(last->packets.All(), Texts{"abcdef"});
  EXPECT_EQ(packet->Count(), 1);
  last.reset();
  packet->Offset(0);
  EXPECT_TRUE(out->Push(*packet)) << "a destroyed sink takes its links along";
  packet->Offset(0);
  EXPECT_TRUE(IPort::Link(*out, *refusing.AddInput()));
  EXPECT_FALSE(out->Push(*packet));
  EXPECT_EQ(first.packets.Count(), 3u) << "one sink's refusal is not the other's";
}

TEST(Sink, TakesPacketsOnlyWhileItCan) {
  ConsoleCapture console;
  ScriptSource source;
  CaptureSink sink;
  IPort* out[2] = {source.AddOutput(), source.AddOutput()};
  for (IPort* port : out) ASSERT_TRUE(IPort::Link(*port, *sink.AddInput()));
  sink.AddInput();  // not linked: nothing is waited for
  auto const video = NewMedia("h264"), audio = NewMedia("pcm");
  auto const packet = PacketRef::Take(NewPacket("x", video.get()));
  EXPECT_TRUE(out[0]->Offer(video.get()));
  EXPECT_FALSE(out[0]->Ready());
  EXPECT_FALSE(out[0]->Push(*packet));
  EXPECT_NE(console.Text().find("!Ready()"), std::string::npos);
  EXPECT_TRUE(out[1]->Offer(audio.get()));
  EXPECT_TRUE(out[0]->Ready());
  EXPECT_TRUE(out[0]->Push(*packet));

  EXPECT_TRUE(sink.StatusChange(IStatus::kRunning));
  EXPECT_TRUE(out[0]->Push(*packet));
  EXPECT_TRUE(sink.StatusChange(IStatus::kClosed));
  EXPECT_FALSE(out[0]->Push(*packet));
  EXPECT_FALSE(sink.StatusChange(99));
  EXPECT_FALSE(out[0]->Push(*packet)) << "a refused change opens nothing";
  EXPECT_TRUE(sink.StatusChange(IStatus::kOpen));
  EXPECT_TRUE(out[0]->Push(*packet));
  EXPECT_EQ(sink.packets.Count(), 3u);
}

TEST(Sink, RefusesToBeTurnedFromInside) {
  ConsoleCapture console;
  CaptureSink* self = nullptr;
  IPort* port = nullptr;
  CaptureSink sink([&](Packet& packet) {
    EXPECT_FALSE(self->StatusChange(IStatus::kClosed));
    EXPECT_FALSE(port->Push(packet));
    return true;
  });
  self = &sink;
  port = sink.AddInput();
  auto const media = NewMedia("h264");
  port->Offer(media.get());
  sink.StatusChange(IStatus::kRunning);
  auto const packet = PacketRef::Take(NewPacket("x", media.get()));
  EXPECT_TRUE(port->Push(*packet));
  EXPECT_EQ(sink.CurrentStatus(), IStatus::kRunning);
  EXPECT_EQ(sink.packets.Count(), 1u);
}

TEST(Sink, OnePacketAtATimeAndNoneAfterClose) {
  ConsoleCapture console;
  std::atomic<int> inside{0}, faults{0}, taken{0}, refused{0};
  std::atomic<bool> closed{false}, stop{false};
  CaptureSink sink([&](Packet&) {
    if (++inside != 1 || closed) ++faults;
    ++taken;
    --inside;
    return true;
  });
  auto const media = NewMedia("h264");
  IPort* ports[2] = {sink.AddInput(), sink.AddInput()};
  for (IPort* port : ports) port->Offer(media.get());
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      auto const packet = PacketRef::Take(NewPacket("x", media.get()));
      while (!stop)
        if (!ports[t % 2]->Push(*packet)) ++refused, std::this_thread::yield();
    });
  for (int round = 0; round < 5; ++round) {
    int const before = taken;
    closed = false;
    EXPECT_TRUE(sink.StatusChange(IStatus::kRunning));
    EXPECT_TRUE(test::Eventually([&] { return taken > before + 50; }));
    EXPECT_TRUE(sink.StatusChange(IStatus::kClosed));
    closed = true;
    int const then = refused;
    EXPECT_TRUE(test::Eventually([&] { return refused > then + 8; }));
  }
  stop = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(faults, 0);
}

std::vector<Packet*> Numbered(int from, int count, IMedia* media) {
  std::vector<Packet*> packets;
  for (int i = from; i < from + count; ++i) packets.push_back(NewPacket(std::to_string(i), media));
  return packets;
}

Texts Numbers(int count) {
  Texts texts;
  for (int i = 0; i < count; ++i) texts.push_back(std::to_string(i));
  return texts;
}

TEST(Source, WaitsForItsSinksThenDeliversInOrder) {
  auto const video = NewMedia("h264"), audio = NewMedia("pcm"), foreign = NewMedia("txt");
  std::atomic<bool> complete{false};
  std::atomic<int> early{0};
  CaptureSink sink([&](Packet&) {
    if (!complete) ++early;
    return true;
  });
  ScriptSource source(Numbered(0, 100, video.get()));
  source.Add({NewPacket("100", audio.get()), NewPacket("lost", foreign.get()),
              NewPacket("101", video.get())});
  Messages messages(source);
  IPort* out[2] = {source.AddOutput(), source.AddOutput()};
  for (IPort* port : out) ASSERT_TRUE(IPort::Link(*port, *sink.AddInput()));
  ASSERT_TRUE(out[0]->Offer(video.get()));
  ASSERT_TRUE(source.StatusChange(IStatus::kRunning));
  EXPECT_FALSE(source.Start()) << "it runs";
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  complete = true;
  ASSERT_TRUE(out[1]->Offer(audio.get()));
  ASSERT_TRUE(messages.Reach(1));
  EXPECT_TRUE(source.Ended());
  EXPECT_EQ(sink.packets.All(), Numbers(102));
  EXPECT_EQ(early, 0);

  source.Add(Numbered(102, 5, video.get()));  // the stream goes on
  ASSERT_TRUE(messages.Reach(2));
  EXPECT_EQ(sink.packets.All(), Numbers(107));
  source.Add({Packet::ReadFailure()});
  ASSERT_TRUE(messages.Reach(3));
  EXPECT_TRUE(source.StatusChange(IStatus::kClosed));
  EXPECT_EQ(messages.All(), (Texts{"eos", "eos", "error: reading failed"}));
}

// Takes packets slowly enough for a long script to outlast the test, and counts those it is done
// with.
struct SlowSink : CaptureSink {
  SlowSink()
      : CaptureSink([this](Packet&) {
          std::this_thread::sleep_for(std::chrono::microseconds(200));
          return ++done > 0;
        }) {}
  // Whether no packet is under way, nor comes.
  bool Rests() {
    int const now = done;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done == now;
  }
  std::atomic<int> done{0};
};

TEST(Source, PausesResumesAndStops) {
  auto const media = NewMedia("h264");
  SlowSink sink;
  ScriptSource source(Numbered(0, 100000, media.get()));
  IPort* out = source.AddOutput();
  ASSERT_TRUE(IPort::Link(*out, *sink.AddInput()));
  ASSERT_TRUE(out->Offer(media.get()));
  EXPECT_FALSE(source.Pause()) << "not running";
  ASSERT_TRUE(source.StatusChange(IStatus::kRunning));
  for (int round = 0; round < 3; ++round)
    for (int status : {IStatus::kPaused, IStatus::kRunning, IStatus::kOpen, IStatus::kRunning}) {
      auto const from = sink.packets.Count();
      ASSERT_TRUE(sink.packets.Reach(from + 10));
      ASSERT_TRUE(source.StatusChange(status));
      if (status == IStatus::kRunning) continue;
      EXPECT_TRUE(sink.Rests());
      ASSERT_TRUE(source.StatusChange(IStatus::kRunning));
    }
  ASSERT_TRUE(source.StatusChange(IStatus::kPaused));
  EXPECT_TRUE(source.StatusChange(IStatus::kClosed)) << "from a pause";
  EXPECT_EQ(sink.packets.All(), Numbers(static_cast<int>(sink.packets.Count())));
}

TEST(Source, UnlinkedOrDestroyedWhileItRuns) {
  auto const media = NewMedia("h264");
  SlowSink sink;
  {
    ScriptSource source(Numbered(0, 100000, media.get()));
    IPort* out = source.AddOutput();
    IPort* in = sink.AddInput();
    ASSERT_TRUE(IPort::Link(*out, *in) && out->Offer(media.get()));
    ASSERT_TRUE(source.StatusChange(IStatus::kRunning));
    ASSERT_TRUE(sink.packets.Reach(10));
    in->Unlink();
    EXPECT_TRUE(sink.Rests()) << "no packet after Unlink has returned";
  }
  EXPECT_FALSE(sink.Ports()[0]->Linked());
}

class PlainMuxer : public IMuxer {
 public:
  PlainMuxer() : IMuxer("PlainMuxer") {}
  bool ReceivePacket(Packet&, void*) override { return true; }
  using IIO::_lent;
  using IIO::_path;
};

TEST(Muxer, OpensAFileOrALentStream) {
  PlainMuxer muxer;
  muxer._path = "/nowhere/x.avi";
  EXPECT_FALSE(muxer.Open());
  EXPECT_EQ(muxer.Why(), "/nowhere/x.avi: No such file or directory");
  EXPECT_EQ(muxer.Stream(), nullptr);

  test::MemoryIO memory("an older recording");
  memory.Seek(5, base::IO::kBegin);
  test::FaultIO fixed(memory);  // cannot be cut
  fixed.Fail({test::FaultIO::kTruncate, 1, true});
  muxer._lent = &fixed;
  EXPECT_FALSE(muxer.Open());
  EXPECT_NE(muxer.Why(), "");
  muxer._lent = &memory;
  EXPECT_TRUE(muxer.Open());
  EXPECT_EQ(muxer.Stream(), &memory);
  EXPECT_EQ(memory.Size(), 0);
  EXPECT_EQ(memory.Tell(), 0);
  EXPECT_TRUE(muxer.Close());
  EXPECT_EQ(muxer.Stream(), nullptr);
  EXPECT_TRUE(muxer.Close());
}

TEST(Muxer, FaultsReachTheApplication) {
  PlainMuxer muxer;
  Messages messages(muxer);
  test::FaultIO full;
  full.Fail({test::FaultIO::kWrite, 1, false, 0, ENOSPC});
  EXPECT_EQ(full.Write("x", 1), 0u);
  EXPECT_TRUE(muxer.Check() && muxer.CheckIO());
  muxer.IOError(&full);
  EXPECT_FALSE(muxer.Check() || muxer.CheckIO());
  EXPECT_EQ(messages.All(), Texts{"error: writing failed: No space left on device"});
  muxer._lent = &full;
  EXPECT_TRUE(muxer.Open());
  EXPECT_TRUE(muxer.Check() && muxer.CheckIO()) << "a file that opens clears the error";
}

}  // namespace
}  // namespace kestro::stream
