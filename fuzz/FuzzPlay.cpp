// Any bytes as a file: play never crashes, always ends, and plays the same with a cache.
#include <array>
#include <functional>

#include "fuzz/Fuzz.h"
#include "support/FaultIO.h"
#include "support/Playing.h"
#ifdef KESTRO_CUSTOMIZE
#include "Register.h"
#include "customize/CusAviDemux.h"
#endif

namespace kestro::fuzz {

using base::int64;
using test::PlayMode;

namespace {

constexpr std::size_t kScript = 32, kFile = 32768;  // bytes at most

#ifdef KESTRO_CUSTOMIZE
// Its cache has no thread and blocks smaller than most files here.
class CachedDemuxer : public plugin::avi::CusAviDemuxer {
  CacheSize SizeOfCache() const override { return {512, 0}; }
};

char const* CachedAlias() {
  static bool const once = [] {
    test::RegisterClasses();
    plugin::avi::RegisterClass<CachedDemuxer>("FuzzCachedDemuxer", nullptr,
                                              CachedDemuxer::Properties(), "");
    return true;
  }();
  (void)once;
  return "FuzzCachedDemuxer";
}
#endif

// A demuxer element that follows a script.
class Player {
 public:
  Player(Input file, char const* alias) : _playing(&_device, 0, alias) {
    _memory.bytes.assign(file.begin(), file.end());
  }

  void Run(Input script) {
    if (script.Empty()) PlayAll(PlayMode::kNormal);
    while (!script.Empty()) {
      unsigned const step = script.U8();
      Step(step, script.U8());
    }
    static_cast<void>(_playing.demuxer->StatusChange(stream::IStatus::kClosed));
  }
  void Preload(unsigned bytes, bool on) {
    _playing.demuxer->Set("preloadsz", int64(bytes));
    _playing.demuxer->Set("vlcPreload", on);
  }
  bool Faulty() const { return _device.Failures() > 0; }

  // Of each packet: track and flags, time, size, and a hash of the data.
  std::vector<std::array<std::uint64_t, 4>> got;
  bool preloads = false;  // the script sets the preload

 private:
  void Step(unsigned step, unsigned argument);
  void PlayAll(PlayMode mode);
  void Play(std::size_t most);
  std::uint64_t TrackOf(stream::Packet const& packet) const {
    auto const& outputs = _playing.outputs;
    auto const carries = [&](stream::IPort* output) { return output->Carries(packet.Media()); };
    return std::uint64_t(std::find_if(outputs.begin(), outputs.end(), carries) - outputs.begin());
  }
  bool Open() {
    static_cast<void>(_playing.demuxer->StatusChange(stream::IStatus::kClosed));
    return _playing.Open();
  }
  void ReadStreamData();

  test::MemoryIO _memory;
  test::FaultIO _device{_memory};
  test::Playing _playing;
  std::string _data;
};

void Player::Step(unsigned step, unsigned argument) {
  auto& demuxer = *_playing.demuxer;
  auto const number = int64(argument);
  switch (step % 12) {
    case 0:
      return Play(argument);
    case 1:
      return static_cast<void>(demuxer.PlayModeSwitch(static_cast<PlayMode>(argument % 6)));
    case 2:
      return static_cast<void>(demuxer.Seek(number * 40));
    case 3:
      return static_cast<void>(demuxer.Seek((number - 128) * (int64{1} << (argument % 57))));
    case 4:
      return static_cast<void>(demuxer.Set("plyVidCtrl", argument));
    case 5:
      preloads = true;
      return Preload(argument * 64, argument % 8 != 0);
    case 6:
      return static_cast<void>(Open());
    case 7:
      return static_cast<void>(demuxer.StatusChange(stream::IStatus::kClosed));
    case 8:
      return ReadStreamData();
    case 9:
      return _device.Fail({test::FaultIO::kRead,
                           _device.Count(test::FaultIO::kRead) + 1 + static_cast<int>(argument / 2),
                           argument % 2 != 0});
    case 10:
      return PlayAll(static_cast<PlayMode>(argument % 5));
    default:
      demuxer.ParseFile([&](stream::IMedia*) { return argument-- > 0; });
  }
}

void Player::PlayAll(PlayMode mode) {
  if (!Open()) return;
  _playing.demuxer->PlayModeSwitch(mode);
  if (mode == PlayMode::kBack) _playing.demuxer->Seek(INT64_MAX);
  Play(SIZE_MAX);
}

// Each packet has an index entry of 16 bytes of its own.
void Player::Play(std::size_t most) {
  std::size_t const entries = _memory.bytes.size() / 16;
  for (std::size_t count = 0; count < most; ++count) {
    auto const packet = _playing.Next();
    if (!packet) return;
    auto const size = static_cast<std::size_t>(packet->Size());
    KESTRO_ASSERT(size <= _memory.bytes.size());
    _data.assign(reinterpret_cast<char const*>(packet->Data()), size);
    bool const end = (packet->Flags() & stream::Packet::kEndOfStream) != 0;
    got.push_back({TrackOf(*packet) * 4 + packet->IsKey() * 2u + end, std::uint64_t(packet->Pts()),
                   size, std::hash<std::string>()(_data)});
    KESTRO_ASSERT(count < entries);
  }
}

void Player::ReadStreamData() {
  unsigned size = 0;
  if (!_playing.demuxer->Get("strdsize", size)) return;
  KESTRO_ASSERT(size <= _memory.bytes.size());
  std::vector<unsigned char> buffer(size);
  unsigned char* data = buffer.data();
  _playing.demuxer->Get("strddata", data);
}

}  // namespace
}  // namespace kestro::fuzz

// A file, followed by a script of steps and their arguments, whose length is the last byte. A
// script that sets the preload is run a second time, with the cache.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace kestro::fuzz;
  Quiet();
  Input file(data, std::min(size, kFile));
  Input const script = file.TakeTail(1, kScript);
  Player plain(file, "AviDemuxer-avi-demuxer");
  plain.Run(script);
#ifdef KESTRO_CUSTOMIZE
  if (!plain.preloads) return 0;
  Player cached(file, CachedAlias());
  cached.Preload(4096, true);
  cached.Run(script);
  KESTRO_ASSERT(plain.Faulty() || cached.Faulty() || plain.got == cached.got);
#endif
  return 0;
}
