// Elements, ports and links.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <utility>

#include "stream/ISource.h"
#include "support/Fakes.h"

namespace kestro::stream {
namespace {

using base::ConsoleCapture;
using test::CaptureSink;
using test::NewMedia;
using test::NewPacket;
using test::PacketRef;
using Texts = std::vector<std::string>;

// Notes the operations of a change of state; those in `failing` fail.
struct Stepper : IStatus {
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
    std::string steps;  // and the state reached; "!": the change failed
  } const table[] = {{0, 3, "", "OSP 3"},  {3, 0, "", "TC 0"},   {3, 2, "", "R 2"},
                     {3, 1, "", "T 1"},    {2, 2, "", " 2"},     {0, 2, "O", "O! 0"},
                     {0, 3, "S", "OS! 1"}, {3, 0, "T", "TC! 0"}, {2, 0, "TC", "TC! 0"},
                     {1, 4, "", "! 1"},    {1, -1, "", "! 1"}};
  for (auto const& row : table) {
    Stepper element;
    ASSERT_TRUE(element.StatusChange(row.from));
    element.steps.clear();
    element.failing = row.failing;
    bool const ok = element.StatusChange(row.to);
    auto const reached = (ok ? " " : "! ") + std::to_string(element.CurrentStatus());
    EXPECT_EQ(element.steps + reached, row.steps) << row.from << " to " << row.to;
  }
}

// Delivers numbered packets, up to an end or a failure.
class Counter : public ISource {
 public:
  explicit Counter(std::function<IMedia*(int)> of = nullptr, int end = 0)
      : ISource("Counter"), _media(std::move(of)), _end(end) {}
  ~Counter() override { IElementWithThread::Stop(); }

  // Continues a stream that has ended.
  void GoOn(int end, bool fails = false) {
    _fails = fails;
    _end = end;
    ClearEnd();
  }
  std::function<void()> meanwhile;  // called once while it reaches the end

  Packet* GeneratePacket(void*) override {
    if (_next == _end) {
      bool const fails = _fails;
      if (meanwhile) std::exchange(meanwhile, nullptr)();
      return fails ? Packet::ReadFailure() : nullptr;
    }
    int const n = _next++;
    return NewPacket(std::to_string(n), _media(n)).Detach();
  }

 private:
  std::function<IMedia*(int)> const _media;
  int _next = 0;
  std::atomic<int> _end;
  std::atomic<bool> _fails{false};
};

// A new output of the source, linked with a new input of the sink.
IPort* Join(ISource& source, ISink& sink, IMedia* media = nullptr) {
  IPort* out = source.AddOutput();
  EXPECT_TRUE(IPort::Link(*out, *sink.AddInput()));
  EXPECT_TRUE(media == nullptr || out->Offer(media));
  return out;
}

TEST(Element, MessagesCarryTheirAttributes) {
  Counter source;
  base::AttrSet attrs;
  attrs.Add("file", "a.avi");
  EXPECT_TRUE(source.SendMessageUp("eos", nullptr, &attrs)) << "nobody listens";
  std::string seen;
  source.OnMessage([&seen](IElement&, char const* type, char const*, base::AttrSet const* given) {
    seen = std::string(type) + " " + (given != nullptr ? given->Find("file") : "nothing");
    return false;
  });
  EXPECT_FALSE(source.SendMessageUp("warning", nullptr, &attrs));
  EXPECT_EQ("warning a.avi", seen);
}

TEST(Port, LinksCarryMediaThatMatch) {
  Counter source;
  CaptureSink any, limited;
  IPort* out = Join(source, any);
  IPort* spare = source.AddOutput();
  IPort* anyIn = any.Ports()[0].get();
  IPort* limitedIn = limited.AddInput("pcm,aac");
  for (char const* codec : {"pc", "pcm2", "", "*", "pcm,aac"})
    EXPECT_FALSE(limitedIn->Match(codec));
  auto const video = NewMedia("h264"), audio = NewMedia("aac"), other = NewMedia("pcm");

  EXPECT_FALSE(IPort::Link(*limitedIn, *spare)) << "linked already";
  EXPECT_FALSE(IPort::Link(*spare, *anyIn)) << "linked already";
  EXPECT_TRUE(IPort::Link(*out, *limitedIn));
  EXPECT_FALSE(out->Offer(video.get())) << "one of two refuses it";
  EXPECT_EQ(video->Count(), 1) << "no port keeps a refused track";
  EXPECT_TRUE(out->Offer(audio.get()));
  EXPECT_FALSE(out->Offer(other.get())) << "keeps the first";
  EXPECT_EQ(audio->Count(), 4);
  EXPECT_TRUE(out->Offer(nullptr));
  EXPECT_EQ(audio->Count(), 1) << "withdrawn everywhere";

  limitedIn->Unlink();
  EXPECT_TRUE(out->Offer(video.get()));
  EXPECT_FALSE(IPort::Link(*out, *limitedIn)) << "refuses the track";
  EXPECT_FALSE(limitedIn->Linked());
  out->Unlink();
  EXPECT_FALSE(anyIn->Linked());
}

TEST(Port, OffersNothingWhileItIsOffered) {
  struct : CaptureSink {
    bool AcceptMedia(IPort& port, IMedia* media) override { return !port.Offer(media); }
  } sink;
  Counter source;
  ConsoleCapture console;
  auto const media = NewMedia("h264");
  EXPECT_TRUE(Join(source, sink)->Offer(media.get()));
  EXPECT_NE(console.Text().find("/Offer:\t_offerer == self,an offer from inside"),
            std::string::npos);
}

TEST(Port, EveryLinkedSinkGetsThePacket) {
  Counter source;
  auto const eats = [](Packet& packet) { return packet.Offset(2), true; };
  CaptureSink first(eats), refusing([](Packet&) { return false; });
  auto last = std::make_unique<CaptureSink>(eats);
  auto const media = NewMedia("txt");
  auto const packet = NewPacket("abcdef", media.get());
  IPort* out = Join(source, first, media.get());
  EXPECT_TRUE(IPort::Link(*out, *last->AddInput()));
  EXPECT_TRUE(out->Push(*packet));
  for (auto* sink : {&first, last.get()}) EXPECT_EQ(sink->packets.All(), Texts{"abcdef"});
  last.reset();
  EXPECT_TRUE(out->Push(*packet)) << "the links of a destroyed sink are gone";
  EXPECT_TRUE(IPort::Link(*out, *refusing.AddInput()));
  EXPECT_FALSE(out->Push(*packet));
  EXPECT_EQ(first.packets.Count(), 3u) << "one sink refuses, the other takes it";
}

TEST(Sink, TakesPacketsOnlyWhileItCan) {
  ConsoleCapture console;
  CaptureSink sink([&](Packet& packet) {
    EXPECT_FALSE(sink.StatusChange(IStatus::kClosed)) << "from inside";
    EXPECT_FALSE(sink.Ports()[0]->Push(packet)) << "from inside";
    return true;
  });
  Counter source;
  auto const media = NewMedia("h264");
  IPort* out = Join(source, sink, media.get());
  IPort* second = Join(source, sink);
  sink.AddInput();  // not linked: nothing is waited for
  auto const packet = NewPacket("x", media.get());
  EXPECT_FALSE(out->Ready());
  EXPECT_FALSE(out->Push(*packet));
  EXPECT_TRUE(second->Offer(media.get()));
  EXPECT_TRUE(out->Ready());
  EXPECT_TRUE(out->Push(*packet));

  EXPECT_TRUE(sink.StatusChange(IStatus::kClosed));
  EXPECT_FALSE(out->Push(*packet));
  EXPECT_FALSE(sink.StatusChange(99)) << "a refused change opens nothing";
  EXPECT_FALSE(out->Push(*packet)) << "a refused change opens nothing";
  EXPECT_TRUE(sink.StatusChange(IStatus::kOpen));
  EXPECT_TRUE(out->Push(*packet));
  EXPECT_EQ(sink.packets.Count(), 2u);
}

TEST(Sink, OnePacketAtATimeAndNoneAfterClose) {
  ConsoleCapture console;
  std::atomic<int> inside{0}, faults{0}, taken{0};
  std::atomic<bool> closed{false};
  CaptureSink sink([&](Packet&) {
    if (++inside != 1 || closed) ++faults;
    ++taken;
    --inside;
    return true;
  });
  auto const media = NewMedia("h264");
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(sink.AddInput()->Offer(media.get()));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      auto const packet = NewPacket("x", media.get());
      while (sink.Ports()[t % 2]->Push(*packet)) std::this_thread::yield();
    });
  EXPECT_TRUE(test::Eventually([&] { return taken > 200; }));
  EXPECT_TRUE(sink.StatusChange(IStatus::kClosed));
  closed = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(faults, 0);
}

Texts Numbers(std::size_t count) {
  Texts texts;
  while (texts.size() < count) texts.push_back(std::to_string(texts.size()));
  return texts;
}

TEST(Source, WaitsForItsSinksThenDeliversInOrder) {
  auto const video = NewMedia("h264"), audio = NewMedia("pcm"), foreign = NewMedia("txt");
  CaptureSink sink;
  Counter source(
      [&](int n) { return n == 100   ? audio.get()
                          : n == 101 ? foreign.get()
                                     : video.get(); }, 102);
  test::Messages messages(source);
  Join(source, sink, video.get());
  IPort* second = Join(source, sink);
  ASSERT_TRUE(source.StatusChange(IStatus::kRunning));
  EXPECT_FALSE(source.Start()) << "it runs";
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(sink.packets.Count(), 0u);
  ASSERT_TRUE(second->Offer(audio.get()));
  ASSERT_TRUE(messages.Reach(1));
  ASSERT_TRUE(source.Ended());
  EXPECT_EQ(sink.packets.All(), Numbers(101)) << "the last has no port";

  source.GoOn(107);
  ASSERT_TRUE(messages.Reach(2));
  EXPECT_EQ(sink.packets.Count(), 106u);
  source.GoOn(107, true);
  ASSERT_TRUE(messages.Reach(3));
  source.meanwhile = [&source] { source.GoOn(110); };
  source.GoOn(107, true);
  ASSERT_TRUE(messages.Reach(5)) << "a seek made while a read fails";
  EXPECT_EQ(sink.packets.Count(), 109u);
  EXPECT_EQ(messages.All(),
            (Texts{"eos", "eos", "error: reading failed", "error: reading failed", "eos"}));
}

TEST(Source, PausesResumesStopsAndIsUnlinked) {
  auto const media = NewMedia("h264");
  std::atomic<std::size_t> done{0};
  CaptureSink sink([&](Packet&) {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    return ++done > 0;
  });
  auto const rests = [&] {  // no packet comes
    std::size_t const now = done;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done == now;
  };
  {
    Counter source([&](int) { return media.get(); }, INT_MAX);
    Join(source, sink, media.get());
    using S = IStatus;
    int const rest[] = {S::kPaused, S::kOpen, S::kPaused, S::kClosed, S::kOpen, S::kClosed, -1};
    for (int next : rest) {
      ASSERT_TRUE(source.StatusChange(IStatus::kRunning));
      ASSERT_TRUE(sink.packets.Reach(done + 10));
      if (next >= 0) {
        EXPECT_TRUE(source.StatusChange(next));
      } else {
        sink.Ports()[0]->Unlink();
      }
      EXPECT_TRUE(rests()) << "no packet after " << next;
    }
  }
  EXPECT_EQ(sink.packets.All(), Numbers(done));
}

}  // namespace
}  // namespace kestro::stream
