// A sequence of operations: recordings one after another, on devices that fail. What is played is
// what was recorded, and every failure was reported.
#include <memory>
#include <string_view>

#include "base/File.h"
#include "base/LittleEndian.h"
#include "crash/Image.h"
#include "customize/VFIAviMuxer.h"
#include "fuzz/Fuzz.h"
#include "fuzz/SmallMuxer.h"
#include "support/FaultIO.h"
#include "support/FileLayout.h"
#include "support/Playing.h"

namespace kestro::fuzz {

using base::int64;
using test::FaultIO;
using test::kStart;

namespace {

enum Way { kPlain, kInPlace, kImage, kCallback };
constexpr unsigned kHeader = 2052;
constexpr int kMaxSteps = 250;
constexpr std::size_t kMaxBytes = 32768;
constexpr int kBlockShift = 12;  // of the writer's blocks, and of the data between two images

// Small recordings fill several blocks, and spill their index. Without a second block in memory,
// there is no thread.
using SmallPlainMuxer = SmallMuxer<plugin::avi::AviMuxer, kBlockShift>;
class SmallSyncMuxer : public SmallMuxer<plugin::avi::VFIAviMuxer, kBlockShift> {
  bool PeriodicSyncCacheSizeCheck(stream::Packet& packet, int) override {
    return VFIAviMuxer::PeriodicSyncCacheSizeCheck(packet, kBlockShift);
  }
  bool PeriodicSyncAccDataCacheSizeReset(int) override {
    return VFIAviMuxer::PeriodicSyncAccDataCacheSizeReset(kBlockShift);
  }
};

constexpr char kPlainAlias[] = "FuzzMuxer", kSyncAlias[] = "FuzzSyncMuxer";

// A packet, and what it must be in the file.
struct Sample {
  std::size_t track = 0;
  char kind = 0;
  std::string data;
  std::size_t lead = 0;   // bytes of `data` that are not stored
  std::size_t blank = 0;  // stored bytes that are delivered as zeros
  bool key = false;
  bool taken = false;

  std::string_view Stored() const { return std::string_view(data).substr(lead); }
  std::string Delivered() const { return std::string(Stored()).replace(0, blank, blank, '\0'); }
  bool Indexed() const { return !data.empty() && kind != 'a'; }
};

std::vector<unsigned char> image;  // the last one handed over
void Keep(unsigned, unsigned, unsigned char const* data, unsigned size, unsigned) {
  image.assign(data, data + size);
}

using Bytes = std::vector<unsigned char>;

std::string_view Text(Bytes const& bytes) {
  return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

Bytes Applied(Bytes bytes) {
  crash::ApplyImage(bytes, image, kHeader);
  return bytes;
}

class Recorder {
 public:
  explicit Recorder(Input input)
      : _input(input),
        _way(static_cast<Way>(_input.U8() % 4)),
        _tracks(NextTracks()),
        _recording(&_memory, Alias()) {
    for (char kind : _tracks) _recording.Track(Media(kind));
    unsigned const spill = _input.U8();
    if (spill % 4 != 0) _recording.muxer->Set("listfile", static_cast<int>(spill % 4) - 1);
    if (spill % 8 > 4) _recording.muxer->Set("diskName", 'Q');  // there is no such drive
    _recording.muxer->Set("cacheBlocks", 1u);
    _played = spill / 8;
    _recording.muxer->Set("flushtime", 100u);
    _recording.muxer->Set("periodicSyncEn", _way != kInPlace);
    _recording.muxer->Set("periodicSyncCallback", &Keep);
  }

  void Run() {
    Open();
    for (int steps = 0; steps < kMaxSteps && !_input.Empty(); ++steps) Step();
    Close();
  }

 private:
  // In the order in which applications add them.
  std::string NextTracks() {
    unsigned const mask = _input.U8();
    std::string tracks;
    for (int i = 0; i < 7; ++i)
      if ((mask >> i & 1) != 0) tracks += "hvpPtja"[i];
    return tracks.empty() ? "h" : tracks;
  }
  char const* Alias() const { return _way == kPlain ? kPlainAlias : kSyncAlias; }
  static base::Ref<stream::IMedia> Media(char kind) {
    if (kind == 'p') return test::AudioMedia();
    if (kind == 'P') return test::AudioMedia(8000, 1, 320);
    if (kind == 'a') return base::Ref<stream::IMedia>::Take(stream::IMedia::New("aac"));
    return test::VideoMedia(kind == 'h'   ? "h264"
                            : kind == 'v' ? "hevc"
                            : kind == 't' ? "txt"
                                          : "jpeg");
  }

  void Open();
  void AddFault();
  void Step();
  void Control(unsigned step, unsigned argument);
  Sample NextSample(unsigned step, unsigned bits, std::size_t size);
  void Push(Sample sample);
  void Close();
  void CheckFaults(Bytes const& bytes, bool closed);
  bool Full() const { return _room < Entries(); }
  std::size_t Entries() const {
    return static_cast<std::size_t>(
        std::count_if(_samples.begin(), _samples.end(), [](auto& s) { return s.Indexed(); }));
  }
  void Check(Bytes const& file, std::size_t least, bool plays = true);
  void Play(Bytes const& file, std::vector<Sample const*> const& indexed, bool all);

  Input _input;
  Way const _way;
  std::string const _tracks;
  test::MemoryIO _memory;
  std::unique_ptr<FaultIO> _device;
  std::unique_ptr<test::Tags> _tags;  // outlives the muxer, as the device does
  test::Recording _recording;
  // Of the open file:
  std::vector<Sample> _samples;
  std::size_t _room = 0;    // entries that the index can hold
  std::size_t _synced = 0;  // samples that a sync has covered
  unsigned _syncs = 0;
  bool _once = false;  // what fails does so once
  int64 _ms = 0;
  std::size_t _total = 0;
  unsigned _number = 0;
  unsigned _played = 0;  // the sync after which the file is played
  unsigned _video = 1;   // the video track that was played last
};

void Recorder::Open() {
  unsigned const tags = _input.U8();
  test::Shape shape;
  shape.isft = (tags & 1) != 0 ? "software" : "";
  shape.junk = (tags & 2) != 0 ? "junk" : "";
  shape.strd = (tags & 4) != 0 ? "data" : "";
  shape.strn = (tags & 8) != 0 ? "name" : "";
  shape.indexFirst = _way == kPlain ? (tags & 16) != 0 : _way != kCallback;
  auto next = std::make_unique<test::Tags>(shape);
  auto& muxer = *_recording.muxer;
  muxer.Set("vidtag", next->object.get());
  _tags = std::move(next);

  _room = SIZE_MAX;
  if (_way == kPlain && shape.indexFirst) _room = 2048;
  if (_way == kInPlace || _way == kImage) _room = 1 + _input.U8();
  using u64 = unsigned long long;
  u64 const index = _way == kInPlace || _way == kImage ? 16 * _room + 4 : 0;
  muxer.Set("reservedSize", index + (_way == kInPlace ? 0u : kHeader) + (_way == kImage ? 8 : 0));
  muxer.Set("periodicSyncHeaderSize", u64{kHeader});
  muxer.Set("periodicSyncIdx1Size", index + 8);

  _memory.bytes.clear();
  _memory.position = 0;
  auto device = std::make_unique<FaultIO>(_memory);
  muxer.Set("io", static_cast<base::IO*>(device.get()));
  _device = std::move(device);
  AddFault();
  image.clear();
  _samples.clear();
  _recording.messages.clear();
  _synced = 0;
  _syncs = 0;
  _ms = 0;
  _recording.Open();
}

void Recorder::AddFault() {
  unsigned const kind = _input.U8(), nth = _input.U8() + 1;
  unsigned const keep = _input.U16() & ~15u;  // devices tear writes between sectors
  _once = kind % 8 == 1;
  FaultIO::Fault fault{FaultIO::kWrite, static_cast<int>(nth), !_once,
                       keep / 16 % 3 == 0 ? base::IO::kFailed : keep};
  switch (kind % 8) {
    case 1:
    case 2:
      return _device->Fail(fault);
    case 4:
      fault.forever = false;
      [[fallthrough]];
    case 5:
      fault.op = FaultIO::kFlush;
      return _device->Fail(fault);
    default:
      break;
  }
}

void Recorder::Step() {
  unsigned const step = _input.U8(), bits = _input.U8(), length = _input.U8();
  if (step >= 240) return Control(step, bits);
  std::size_t size = length < 240 ? length : (length - 239) * 250;
  if (_total + size > kMaxBytes) size = 0;
  _total += size;
  _ms += bits % 64;
  Push(NextSample(step, bits, size));
}

void Recorder::Control(unsigned step, unsigned argument) {
  switch (step % 8) {
    case 0:
    case 1: {
      Close();
      KESTRO_ASSERT(_recording.Close());  // once more
      if (argument % 2 != 0 && !_samples.empty())
        KESTRO_ASSERT(!_recording.Push(0, "closed") || _samples.empty());
      return Open();
    }
    case 2: {
      long long size = 0, *where = &size;
      KESTRO_ASSERT(_recording.muxer->Set("sizeGet", where));
      return;
    }
    case 3: {  // of no track
      auto const foreign = Media('h');
      auto const packet = test::MakePacket(foreign.get(), "foreign");
      KESTRO_ASSERT(!_recording.ports[0]->Push(*packet));
      return;
    }
    case 4:
      return static_cast<void>(_ms += int64(argument) * 1000);
    case 5:
      return static_cast<void>(_ms -= int64(argument) * 1000);
    case 6: {
      Sample empty;
      empty.track = argument % _tracks.size();
      empty.kind = _tracks[empty.track];
      return Push(empty);
    }
    default:
      break;
  }
}

// Units without start codes in them; no two are equal.
Sample Recorder::NextSample(unsigned step, unsigned bits, std::size_t size) {
  Sample sample;
  sample.track = step % _tracks.size();
  sample.kind = _tracks[sample.track];
  sample.key = (step & 1) != 0;
  std::string payload;
  for (unsigned n = _number++, i = 0; i < 4; ++i, n /= 127)
    payload += static_cast<char>(0x80 + n % 127);
  payload.append(size, static_cast<char>(0x80 + _number % 127));
  if (sample.kind == 'h' || sample.kind == 'v') {
    bool const h264 = sample.kind == 'h';
    unsigned const which = bits >> 6;
    std::string const delimiter = kStart + (h264 ? std::string("\x09\x10") : "\x46\x01\x10");
    std::string const sets = h264 ? kStart + "\x67sps" + kStart + "\x68pps"
                                  : kStart + "\x40vps" + kStart + "\x42sps" + kStart + "\x44pps";
    std::string const lead = (bits & 1) != 0 ? delimiter : "", set = (bits & 2) != 0 ? sets : "";
    // The last is one that readers do not take for the first slice.
    char const nal = h264 ? "\x65\x41\x01\x25"[which] : "\x26\x02\0\x2A"[which];
    std::string const slice = kStart + nal + (h264 ? "" : "\x01") + payload;
    sample.data = lead + set + slice;
    sample.lead = lead.size();
    sample.blank = which == 3 ? 0 : set.size();
  } else if (sample.kind == 'j') {
    char head[8] = {'0', static_cast<char>('0' + sample.track), 'd', 'c'};
    base::Store32(reinterpret_cast<unsigned char*>(head + 4),
                  static_cast<unsigned>(payload.size()));
    sample.data = std::string(head, 8) + payload;
  } else {
    sample.data = payload;
  }
  return sample;
}

void Recorder::Push(Sample sample) {
  int const flushes = _device->Count(FaultIO::kFlush);
  sample.taken = _recording.Push(static_cast<int>(sample.track), sample.data, sample.key, _ms);
  _samples.push_back(std::move(sample));
  if (_samples.size() == 1) return;  // the first one opens the file
  if (_device->Count(FaultIO::kFlush) == flushes || _device->Failures() > 0) return;
  _synced = _samples.size();
  bool const plays = _syncs++ == _played;
  if (_way == kCallback)
    Check(Applied(_memory.bytes), _synced, plays);
  else
    Check(_memory.bytes, _synced, plays);
}

void Recorder::Close() {
  bool const closed = _recording.Close();
  if (_samples.empty()) return;
  auto const& bytes = _memory.bytes;
  auto const reported = [this](char const* type) {
    return std::any_of(_recording.messages.begin(), _recording.messages.end(),
                       [type](std::string const& message) { return message.rfind(type, 0) == 0; });
  };
  if (_device->Failures() > 0) {
    KESTRO_ASSERT(reported("error"));
    return CheckFaults(bytes, closed);
  }
  KESTRO_ASSERT(!reported("error"));
  KESTRO_ASSERT(reported("warning: the index is full") == Full());
  KESTRO_ASSERT(closed);
  for (Sample const& sample : _samples) KESTRO_ASSERT(sample.taken);
  KESTRO_ASSERT(base::Load32(bytes.data() + 4) == bytes.size() - 8);
  Check(bytes, _samples.size());
}

void Recorder::CheckFaults(Bytes const& bytes, bool closed) {
  bool const none = std::none_of(_samples.begin(), _samples.end(), [](auto& s) { return s.taken; });
  if (none) return;
  if (_way == kCallback && !_once) {
    Check(Applied(bytes), _synced);
    if (closed) Check(bytes, _synced);
    return;
  }
  Check(bytes, _once ? _samples.size() : _synced);
}

// The index must name samples in their order, of the first `least` all that were taken, as far as
// it has room; and these must play, unless `least` is 0.
void Recorder::Check(Bytes const& file, std::size_t least, bool plays) {
  auto const bytes = Text(file);
  // A file that has failed may hold parts of indexes that were tried before the one that counts.
  std::size_t const index = _way == kCallback ? bytes.rfind("idx1") : bytes.find("idx1");
  std::vector<Sample const*> indexed;
  indexed.reserve(_samples.size());
  auto next = _samples.begin();
  auto const skip = [&] {
    bool const required = next - _samples.begin() < static_cast<std::ptrdiff_t>(least) &&
                          next->taken && next->Indexed() && indexed.size() < _room;
    KESTRO_ASSERT(!required);
    ++next;
  };
  std::size_t const entries = index == std::string::npos || index + 8 > bytes.size()
                                  ? 0
                                  : base::Load32(&file[index + 4]) / 16;
  for (std::size_t i = 0; i < entries && index + 24 + 16 * i <= bytes.size(); ++i) {
    unsigned char const* const entry = &file[index + 8 + 16 * i];
    if (base::Load32(entry) == 0) break;
    auto const track = static_cast<std::size_t>((entry[0] - '0') * 10 + entry[1] - '0');
    std::size_t const offset = base::Load32(entry + 8), size = base::Load32(entry + 12);
    auto const is = [&](Sample const& sample) {
      if (sample.track != track || !sample.Indexed()) return false;
      auto const stored = sample.Stored();
      bool const whole = sample.kind == 'j', padded = whole || sample.kind == 't';
      return size == stored.size() + (padded ? stored.size() % 2 : 0) &&
             bytes.compare(std::min(offset + (whole ? 0 : 8), bytes.size()), stored.size(),
                           stored) == 0;
    };
    while (next != _samples.end() && !is(*next)) skip();
    KESTRO_ASSERT(next != _samples.end());
    bool const video = next->kind == 'h' || next->kind == 'v';
    KESTRO_ASSERT(!video || next->key == (entry[4] == 0x10));
    indexed.push_back(&*next++);
  }
  while (next != _samples.end()) skip();
  if (plays && !indexed.empty()) Play(file, indexed, least > 0);
}

// Of two video tracks it takes the other one each time.
void Recorder::Play(Bytes const& file, std::vector<Sample const*> const& indexed, bool all) {
  test::MemoryIO io;
  io.bytes = file;
  _video = _tracks.substr(0, 2) == "hv" ? !_video : 0;
  test::Playing playing(&io, _video);
  KESTRO_ASSERT(playing.Open() || !all);
  auto const got = playing.All();
  KESTRO_ASSERT(playing.failures == 0 || !all);
  for (std::size_t track = 0, audios = 0, videos = 0; track < _tracks.size(); ++track) {
    bool const audio = _tracks[track] == 'p' || _tracks[track] == 'P';
    bool const chosen = (_tracks[track] == 'h' || _tracks[track] == 'v') && videos++ == _video;
    if (!audio && !chosen) continue;
    int const output = audio ? static_cast<int>(++audios) : 0;
    auto packet = got.begin();
    auto const ahead = [&] {
      while (packet != got.end() && packet->track != output) ++packet;
    };
    for (Sample const* sample : indexed) {
      if (sample->track != track) continue;
      ahead();
      if (packet == got.end() && !all) break;
      KESTRO_ASSERT(packet != got.end());
      KESTRO_ASSERT(packet->data == sample->Delivered());
      ++packet;
    }
    ahead();
    KESTRO_ASSERT(packet == got.end());
  }
}

}  // namespace
}  // namespace kestro::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace kestro::fuzz;
  static Folder const folder;  // for indexes that spill
  static bool const once = [] {
    kestro::test::RegisterClasses();
    RegisterMuxer<SmallPlainMuxer>(kPlainAlias);
    RegisterMuxer<SmallSyncMuxer>(kSyncAlias);
    kestro::base::File::TemporaryFolder(folder.path.c_str());
    return Quiet();
  }();
  KESTRO_ASSERT(once);
  Recorder({data, size}).Run();
  return 0;
}
