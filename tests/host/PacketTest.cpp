// Packets and their media.
#include "stream/Packet.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>

#include "support/Fakes.h"

namespace kestro::stream {
namespace {

using test::NewMedia;
using test::PacketRef;
using test::Text;

TEST(Packet, OffsetMovesTheStartAndKeepsTheEnd) {
  auto const packet = Packet::New(10, "0123456789");
  struct {
    char what;
    int value;
    char const* data;
  } const steps[] = {
      {'o', 3, "3456789"}, {'o', 0, "0123456789"},    {'s', 6, "012345"},     {'o', 9, ""},
      {'o', -5, "012345"}, {'o', 2, "2345"},          {'s', 100, "23456789"}, {'s', -1, ""},
      {'o', INT_MAX, ""},  {'s', INT_MAX, "23456789"}};
  for (auto const& step : steps) {
    step.what == 'o' ? packet->Offset(step.value) : packet->Size(step.value);
    EXPECT_EQ(Text(*packet), step.data) << step.what << step.value;
  }
}

TEST(Packet, MemoryIsAlignedAndWhole) {
  for (int align : {1, 16, 64, 4096})
    for (int size : {0, 1, 100000}) {
      SCOPED_TRACE(testing::Message() << size << " aligned to " << align);
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

TEST(Packet, SharesKeepThePayloadAndHaveTheirOwnFields) {
  bool freed = false;
  auto* owner = new Owner(freed);
  auto const media = NewMedia("h264");
  auto packet = Packet::Wrap(owner->data, 8, owner);
  owner->Release();
  packet->Media(media.get());
  packet->Pts(-(1ll << 60));
  packet->Flags(Packet::kKey | Packet::kEndOfStream);
  packet->Offset(2);
  auto shared = packet->Share(), again = shared->Share();
  shared->Offset(4);
  shared->Pts(5);
  shared->Media(nullptr);
  EXPECT_EQ(Text(*again), "rrowed");
  EXPECT_EQ(again->Data(), packet->Data()) << "one payload";
  EXPECT_EQ(again->Pts(), -(1ll << 60));
  EXPECT_EQ(again->Flags(), 3);
  packet = again = PacketRef();
  EXPECT_EQ(media->Count(), 1);
  EXPECT_FALSE(freed);
  EXPECT_EQ(Text(*shared), "owed");
  shared = PacketRef();
  EXPECT_TRUE(freed);
}

TEST(Media, ExtraDataIsCopiedAndItsPointersMove) {
  unsigned char sets[] = {0, 0, 0, 1, 0x67, 0x64, 0, 0, 0, 1, 0x68}, elsewhere = 0;
  auto const media = NewMedia("h264");
  media->Set("sps", "what a later setting replaces");
  media->Set("sps", sets + 4);
  media->Set("pps", static_cast<unsigned char const*>(sets + 10));
  media->Set("vps", &elsewhere);
  auto const expect = [&](char const* name, unsigned char const* where) {
    unsigned char const* pointer = nullptr;
    media->Get(name, pointer);
    EXPECT_EQ(pointer, where) << name;
  };
  EXPECT_FALSE(media->Extra(nullptr, 5));
  EXPECT_FALSE(media->Extra(sets, 0));
  ASSERT_TRUE(media->Extra(sets, sizeof sets));
  expect("sps", media->ExtraData()->data() + 4);
  expect("pps", media->ExtraData()->data() + 10);
  expect("vps", &elsewhere);
  ASSERT_TRUE(media->Extra(media->ExtraData()->data(), 6)) << "a part of its own data";
  expect("sps", media->ExtraData()->data() + 4);
  expect("pps", nullptr);
  EXPECT_EQ((*media->ExtraData())[4], 0x67);
}

}  // namespace
}  // namespace kestro::stream
