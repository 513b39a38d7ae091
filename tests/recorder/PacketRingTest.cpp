// The memory of event-only recording.
#include "recorder/PacketRing.h"

#include <random>

#include "recorder/RecorderSession.h"

namespace kestro::test {
namespace {

using record::PacketRing;

// A stretch of random groups of pictures and audio, for many bounds.
TEST(PacketRing, NeverHoldsMoreThanItMay) {
  struct Memory : base::Reference {
    Memory(std::uint64_t& all, std::uint64_t size) : live(all), bytes(size) { live += bytes; }
    ~Memory() override { live -= bytes; }
    std::uint64_t& live;
    std::uint64_t const bytes;
  };
  std::mt19937 random(5);
  for (std::uint64_t const bound : {1u, 500u, 5000u, 50000u, 500000u}) {
    SCOPED_TRACE(bound);
    std::uint64_t live = 0;
    static char data[4000];
    PacketRing ring(2, 0, bound, [](std::size_t track, Packet const& packet) {
      EXPECT_TRUE(track == 0 && packet.IsKey());
    });
    std::size_t held = 0;
    for (int i = 0; i < 3000; ++i) {
      std::size_t const track = random() % 3 / 2;
      auto const size = static_cast<int>(random() % sizeof data);
      auto const memory = base::Ref<Memory>::Take(new Memory(live, static_cast<unsigned>(size)));
      auto packet = Packet::Wrap(data, size, memory.get());
      packet->Pts((i + 50 * static_cast<int>(track)) * kMs);  // audio is ahead
      packet->Duration(kMs);
      bool const key = track == 0 && random() % 20 == 0;
      packet->Flags(key ? static_cast<unsigned>(Packet::kKey) : 0u);
      std::uint64_t const own = static_cast<std::uint64_t>(size);
      held += ring.Add(track, std::move(packet), false);
      bool const all = ring.Overflowed() && ring.Empty() && track == 0;
      EXPECT_TRUE(!all || ring.Front(1) == nullptr) << i << ": audio without pictures";
      EXPECT_LE(live - own, bound) << i;
      ring.Rewind();
      EXPECT_EQ(ring.Front(0) == nullptr, ring.Empty()) << i;
      EXPECT_TRUE(ring.Empty() || ring.Front(0)->IsKey()) << i;
    }
    EXPECT_TRUE(bound < 5000 || held > 1000) << held;
  }
}

}  // namespace
}  // namespace kestro::test
