// The packet queue: its order, its bounds and what it drops.
#include <gtest/gtest.h>

#include <future>
#include <sstream>

#include "stream/PacketQueue.h"
#include "support/Fakes.h"

namespace kestro::stream {
namespace {

using test::CaptureSink;
using test::NewMedia;
using test::NewPacket;
using test::PacketRef;

// A queue whose sink holds its first packet until it is released.
struct Rig {
  explicit Rig(std::string const& codecs, bool refuse = false)
      : sink([this, refuse](Packet&) {
          go.wait();
          return !refuse;
        }),
        queue(base::Make<PacketQueue>("packet-queue")) {
    std::istringstream words(codecs);
    for (std::string codec; words >> codec;) {
      tracks.push_back(queue->AddTrack());
      EXPECT_TRUE(IPort::Link(*tracks.back().output, *sink.AddInput()));
      EXPECT_TRUE(tracks.back().input->Offer(NewMedia(codec.c_str()).get()));
    }
    EXPECT_TRUE(queue->StatusChange(IStatus::kRunning));
  }
  ~Rig() { queue.reset(); }

  // "1K40": track 1, key, at 40 ms; "0p80": track 0, not key.
  bool Push(std::string const& name) {
    IPort* port = tracks[name[0] - '0'].input;
    auto const packet = NewPacket(name, port->Media().get());
    if (name[1] == 'K') packet->Flags(Packet::kKey);
    packet->Pts(std::stoll(name.substr(2)) * 1000000);
    return port->Push(*packet);
  }
  std::string Taken() {
    std::string text;
    for (auto const& line : sink.packets.All()) text += line + " ";
    return text;
  }
  base::uint64 Count(char const* name) {
    base::uint64 value = 0;
    EXPECT_TRUE(queue->Get(name, value));
    return value;
  }

  std::promise<void> release;
  std::shared_future<void> go = release.get_future().share();
  CaptureSink sink;
  std::unique_ptr<PacketQueue> queue;
  std::vector<PacketQueue::Track> tracks;
};

TEST(PacketQueue, DropsWholeGroupsAndTheirTime) {
  struct {
    char const *codecs, *bound;
    unsigned most;
    char const *before, *after;  // pushed while the sink is busy, and when it has caught up
    char const* taken;
    unsigned dropped, groups;
  } const table[] = {
      // The current group is dropped from its key frame on, with the audio of that time; so is
      // another that finds no room. What follows begins with a key frame.
      {"h264 pcm", "maxPackets", 5, "0K0 1K0 0p40 1K40 0K80 1K80 0p120 1K120 0K160 0K200 0p240",
       "0p280 1K300 0K320 1K310 1K320 0p360", "0K0 1K0 0p40 1K40 0K160 0K320 1K320 0p360", 9, 2},
      // A group whose beginning was delivered loses its end.
      {"h264", "maxPackets", 2, "0K0 0p40 0p80 0p120 0p160", "0p200 0K240 0p280",
       "0K0 0p40 0p80 0K240 0p280", 3, 1},
      // Another video track goes on with a key frame of its own, after that time.
      {"h264 hevc", "maxPackets", 3, "0K0 1K0 0K40 1p40 0p80", "1p80 0K120 1p120 1K110 1K160 1p200",
       "0K0 1K0 0K120 1K160 1p200", 6, 1},
      // Without video each packet is a group.
      {"pcm", "maxPackets", 2, "0K0 0K1 0K2 0K3 0K4", "0K5", "0K0 0K1 0K2 0K5", 2, 2},
      {"h264", "maxTime_ms", 100, "0K0 0K40 0K80 0K120 0K160", "0K200", "0K0 0K40 0K80 0K120 0K200",
       1, 1},
      {"h264", "maxBytes", 9, "0K0 0K40 0p60 0p80 0K90 0p95", "0K200", "0K0 0K90 0p95 0K200", 3, 1},
      {"h264", "maxBytes", 9, "0K0 0K40 0K80 0K20", "0K200", "0K0 0K40 0K80 0K200", 1, 1},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(row.before);
    Rig rig(row.codecs);
    ASSERT_TRUE(rig.queue->Set(row.bound, row.most));
    ASSERT_TRUE(rig.queue->Set("drop", true));
    std::istringstream before(row.before), after(row.after);
    std::size_t pushed = 0;
    for (std::string name; before >> name;) {
      EXPECT_TRUE(rig.Push(name));
      EXPECT_TRUE(pushed++ > 0 || rig.sink.packets.Reach(1));
    }
    std::size_t const dropped = rig.Count("dropped");
    rig.release.set_value();
    EXPECT_TRUE(rig.sink.packets.Reach(pushed - dropped));
    for (std::string name; after >> name;) EXPECT_TRUE(rig.Push(name));
    EXPECT_TRUE(rig.queue->StatusChange(IStatus::kClosed));
    EXPECT_EQ(rig.Taken(), std::string(row.taken) + " ");
    EXPECT_EQ(rig.Count("dropped"), row.dropped);
    EXPECT_EQ(rig.Count("droppedGroups"), row.groups);
  }
}

TEST(PacketQueue, WaitsForRoomAndDeliversTheRest) {
  Rig rig("h264");
  ASSERT_TRUE(rig.queue->Set("maxPackets", 2));
  std::thread device([&] {
    rig.sink.packets.Reach(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    rig.release.set_value();
  });
  std::string expected;
  for (int i = 0; i < 200; ++i) {
    std::string const name = "0p" + std::to_string(i);
    EXPECT_TRUE(rig.Push(name));
    expected += name + " ";
  }
  EXPECT_TRUE(rig.queue->StatusChange(IStatus::kClosed));
  device.join();
  EXPECT_EQ(rig.Taken(), expected);
  EXPECT_GE(rig.Count("waits"), 1u);
  EXPECT_GE(rig.Count("waited_us"), rig.Count("longestWait_us"));
  EXPECT_FALSE(rig.Push("0p999")) << "closed";
}

TEST(PacketQueue, ARefusedPacketEndsItAndNothingHangs) {
  Rig rig("h264", true);
  test::Messages messages(*rig.queue);
  ASSERT_TRUE(rig.queue->Set("maxPackets", 1));
  rig.release.set_value();
  for (int taken = 0; rig.Push("0K0"); ++taken) ASSERT_LT(taken, 1000);
  EXPECT_FALSE(rig.queue->Check());
  EXPECT_TRUE(rig.queue->StatusChange(IStatus::kClosed));
  EXPECT_EQ(messages.All(), std::vector<std::string>{"error: a packet was refused"});
  EXPECT_EQ(rig.sink.packets.Count(), 1u);
}

}  // namespace
}  // namespace kestro::stream
