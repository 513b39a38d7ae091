// Any bytes as a file: play never crashes, always ends, and plays the same with a cache.
#include "fuzz/Fuzz.h"
#include "support/FaultIO.h"
#include "support/Playing.h"

namespace kestro::fuzz {

using base::int64;
using test::Got;
using test::PlayMode;

namespace {

constexpr std::size_t kScript = 64, kFile = 32768;  // bytes at most

// A demuxer element that follows a script.
class Player {
 public:
  Player(std::string const& file, char const* alias)
      : _memory(file), _device(_memory), _playing(&_device, 0, alias) {}

  void Run(Input script) {
    if (script.Empty()) PlayAll();
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

  std::vector<Got> got;

 private:
  void Step(unsigned step, unsigned argument);
  void PlayAll();
  void Play(std::size_t most);
  bool Open() {
    static_cast<void>(_playing.demuxer->StatusChange(stream::IStatus::kClosed));
    return _playing.Open();
  }
  void ReadStreamData();

  test::MemoryIO _memory;
  test::FaultIO _device;
  test::Playing _playing;
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
      return PlayAll();
    default:
      demuxer.ParseFile([&](stream::IMedia*) { return argument-- > 0; });
  }
}

// From the start in every mode. Each packet has an index entry of 16 bytes of its own.
void Player::PlayAll() {
  if (!Open()) return;
  Play(SIZE_MAX);
  for (auto mode : {PlayMode::kFast, PlayMode::kBack, PlayMode::kVideo, PlayMode::kAudio}) {
    _playing.demuxer->PlayModeSwitch(mode);
    _playing.demuxer->Seek(mode == PlayMode::kBack ? INT64_MAX : 0);
    Play(SIZE_MAX);
  }
}

void Player::Play(std::size_t most) {
  std::size_t const entries = _memory.bytes.size() / 16;
  for (std::size_t count = 0; count < most; ++count) {
    Got packet = _playing.NextGot();
    if (packet.track < 0) return;
    std::string& data = packet.data;
    KESTRO_ASSERT(data.size() <= _memory.bytes.size());
    if (data.size() > 32) data = std::to_string(std::hash<std::string>()(data));
    got.push_back(packet);
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

// A file, followed by a script of steps and their arguments, whose length is the last byte.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace kestro::fuzz;
  Quiet();
  Input file(data, std::min(size, kFile));
  Input const script = file.TakeTail(1, kScript);
  Player plain(file.Text(), "AviDemuxer-avi-demuxer");
  plain.Run(script);
#ifdef KESTRO_CUSTOMIZE
  Player cached(file.Text(), "CusAviDemuxer");
  cached.Preload(4096, true);
  cached.Run(script);
  KESTRO_ASSERT(plain.Faulty() || cached.Faulty() || plain.got == cached.got);
#endif
  return 0;
}
