// For tests of a pipeline: a sink that keeps its packets, and a collector of messages. Both may be
// read while threads run.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "stream/ISink.h"

namespace kestro::test {

using MediaRef = base::Ref<stream::IMedia>;
using PacketRef = base::Ref<stream::Packet>;

inline MediaRef NewMedia(char const* codec) { return MediaRef::Take(stream::IMedia::New(codec)); }

inline PacketRef NewPacket(std::string const& data, stream::IMedia* media) {
  auto packet = stream::Packet::New(static_cast<int>(data.size()), data.data());
  packet->Media(media);
  return packet;
}

inline std::string Text(stream::Packet const& packet) {
  return {reinterpret_cast<char const*>(packet.Data()), static_cast<std::size_t>(packet.Size())};
}

// Waits for a condition that another thread fulfils; false when it does not.
template <class Condition>
bool Eventually(Condition condition) {
  auto const limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// A list of lines that several threads append to.
class Lines {
 public:
  void Add(std::string line) {
    std::lock_guard lock(_mutex);
    _lines.push_back(std::move(line));
  }
  std::vector<std::string> All() const {
    std::lock_guard lock(_mutex);
    return _lines;
  }
  std::size_t Count() const {
    std::lock_guard lock(_mutex);
    return _lines.size();
  }
  bool Reach(std::size_t count) const {
    return Eventually([&] { return Count() >= count; });
  }

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _lines;
};

// Collects an element's messages as "type" or "type: text".
class Messages : public Lines {
 public:
  explicit Messages(stream::IElement& element) {
    element.OnMessage(
        [this](stream::IElement&, char const* type, char const* text, base::AttrSet const*) {
          Add(text != nullptr ? std::string(type) + ": " + text : type);
          return true;
        });
  }
};

// Keeps the data of every packet as text; `hook`, if set, decides whether it is accepted.
class CaptureSink : public stream::ISink {
 public:
  explicit CaptureSink(std::function<bool(stream::Packet&)> hook = nullptr)
      : ISink("CaptureSink"), _hook(std::move(hook)) {
    EXPECT_TRUE(StatusChange(kRunning));
  }
  ~CaptureSink() override { Detach(); }

  bool ReceivePacket(stream::Packet& packet, void*) override {
    packets.Add(Text(packet));
    return _hook == nullptr || _hook(packet);
  }

  Lines packets;

 private:
  std::function<bool(stream::Packet&)> _hook;
};

}  // namespace kestro::test
