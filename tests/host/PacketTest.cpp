// Packets and the media they carry.
#include "stream/Packet.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>

#include "support/Fakes.h"

namespace kestro::stream {
namespace {

using test::MediaRef;
using test::NewMedia;
using test::PacketRef;

std::string Text(Packet const& packet) {
  return {reinterpret_cast<char const*>(packet.Data()), static_cast<std::size_t>(packet.Size())};
}

TEST(Packet, OffsetMovesTheStartAndKeepsTheEnd) {
  auto const packet = PacketRef::Take(Packet::New(10, "0123456789"));
  struct {
    char what;
    int value;
    char const* data;
  } const steps[] = {{'o', 3, "3456789"},
                     {'o', 0, "0123456789"},
                     {'s', 6, "012345"},
                     {'o', 4, "45"},
                     {'o', 9, ""},
                     {'o', -5, "012345"},
                     {'o', 2, "2345"},
                     {'s', 100, "23456789"},
                     {'s', -1, ""},
                     {'o', INT_MAX, ""},
                     {'s', INT_MAX, "23456789"}};
  for (auto const& step : steps) {
    SCOPED_TRACE(testing::Message() << step.what << step.value);
    step.what == 'o' ? packet->Offset(step.value) : packet->Size(step.value);
    EXPECT_EQ(Text(*packet), step.data);
  }
  EXPECT_EQ(packet->Offset(), 2);
  EXPECT_EQ(PacketRef::Take(Packet::New(-1))->Size(), 0);
}

TEST(Packet, MemoryIsAlignedAndWhole) {
  for (int align : {1, 2, 16, 64, 4096})
    for (int size : {0, 1, 100000}) {
      PacketAlloc const alloc(size, align, 64);
      auto const packet = PacketRef::Take(new (alloc) Packet(alloc));
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(packet->Data()) % align, 0u);
      EXPECT_EQ(packet->Size(), size);
      std::memset(packet->Data(), 1, static_cast<std::size_t>(size) + 64);
    }
}

struct Owner : base::Reference {
  explicit Owner(bool& freed) : freed(freed) {}
  ~Owner() override { freed = true; }
  bool& freed;
  char data[9] = "borrowed";
};

TEST(Packet, SharesAndWrapsKeepThePayloadAlive) {
  bool freed = false;
  auto* owner = new Owner(freed);
  auto const media = NewMedia("h264");
  auto packet = PacketRef::Take(Packet::Wrap(owner->data, 8, owner));
  owner->Release();
  packet->Media(media.get());
  packet->Pts(-(1ll << 60));
  packet->Flags(Packet::kKey | Packet::kEndOfStream);
  packet->Seq(9);
  packet->Offset(2);
  auto const shared = PacketRef::Take(packet->Share());
  auto const again = PacketRef::Take(shared->Share());
  EXPECT_EQ(media->Count(), 4);
  shared->Offset(4);
  shared->Pts(5);
  shared->Media(nullptr);
  EXPECT_EQ(Text(*packet), "rrowed") << "fields of its own";
  EXPECT_EQ(again->Pts(), -(1ll << 60));
  EXPECT_EQ(again->Seq(), 9u);
  EXPECT_TRUE(again->IsKey());
  EXPECT_EQ(again->Flags(), 3u);
  EXPECT_EQ(again->Media(), media.get());
  again->Offset(0);
  EXPECT_EQ(again->Data(), packet->Data() - 2) << "one payload";
  packet = PacketRef();
  EXPECT_FALSE(freed);
  EXPECT_EQ(Text(*shared), "owed");
  EXPECT_EQ(media->Count(), 2);
  const_cast<PacketRef&>(shared) = PacketRef();
  const_cast<PacketRef&>(again) = PacketRef();
  EXPECT_TRUE(freed);

  auto own = PacketRef::Take(Packet::New(3, "abc"));
  auto const over = PacketRef::Take(own->Share());
  EXPECT_EQ(own->Count(), 2);
  own = PacketRef();
  EXPECT_EQ(Text(*over), "abc");
}

TEST(Media, KeysConvert) {
  auto const media = NewMedia("pcm");
  int number = 41;
  EXPECT_FALSE(media->Get("width", number));
  EXPECT_EQ(number, 41);
  EXPECT_TRUE(media->Set("width", "1920"));
  EXPECT_TRUE(media->Set("width", static_cast<unsigned short>(1080)));
  EXPECT_TRUE(media->Get("width", number));
  EXPECT_EQ(number, 1080);
  unsigned char narrow = 7;
  EXPECT_FALSE(media->Get("width", narrow));
  EXPECT_EQ(narrow, 7);
  EXPECT_TRUE(media->Set("framerate", base::Fraction(30000, 1001)));
  std::string text;
  EXPECT_TRUE(media->Get("framerate", text));
  EXPECT_EQ(text, "30000/1001");
  EXPECT_FALSE(media->Get("framerate", number));
  EXPECT_TRUE(media->Set("framerate", "25"));
  EXPECT_TRUE(media->Get("framerate", number));
  EXPECT_EQ(number, 25);
  EXPECT_FALSE(media->Set("samples", 1.5));
  EXPECT_FALSE(media->Get("samples", number));
  EXPECT_FALSE(media->Set(nullptr, 1));
}

TEST(Media, ExtraCopiesAndRebases) {
  unsigned char sets[] = {0, 0, 0, 1, 0x67, 0x64, 0, 0, 0, 1, 0x68};
  unsigned char elsewhere = 0;
  auto const media = NewMedia("h264");
  media->Set("sps", sets + 4);
  media->Set("isps", 2);
  media->Set("pps", static_cast<unsigned char const*>(sets + 10));
  media->Set("vps", &elsewhere);
  EXPECT_FALSE(media->Extra(nullptr, 5));
  EXPECT_FALSE(media->Extra(sets, 0));
  ASSERT_TRUE(media->Extra(sets, sizeof sets));
  std::memset(sets, 0xFF, sizeof sets);
  auto const* copy = media->ExtraData().data();
  unsigned char* mutableSet = nullptr;
  unsigned char const* set = nullptr;
  EXPECT_TRUE(media->Get("sps", mutableSet));
  EXPECT_EQ(mutableSet, copy + 4);
  EXPECT_EQ(*mutableSet, 0x67);
  EXPECT_TRUE(media->Get("pps", set));
  EXPECT_EQ(set, copy + 10);
  EXPECT_TRUE(media->Get("vps", set));
  EXPECT_EQ(set, &elsewhere) << "not part of the data";
  ASSERT_TRUE(media->Extra(copy, 6)) << "a part of its own data";
  EXPECT_TRUE(media->Get("sps", set));
  EXPECT_EQ(set, media->ExtraData().data() + 4);
  EXPECT_EQ(*set, 0x67);
}

}  // namespace
}  // namespace kestro::stream
