#include "Mix.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

namespace kestro::bench {

using base::Ref;
using stream::IMedia;
using stream::Packet;

namespace {

constexpr unsigned char kDelimiter[] = {0, 0, 0, 1, 0x09, 0xF0};
// High profile, 1920x1080.
constexpr unsigned char kParameterSets[] = {
    0,    0,    0,    1,    0x67, 0x64, 0x00, 0x28, 0xAC, 0xB2, 0x00, 0xF0, 0x04, 0x4F,  // SPS
    0xCB, 0x80, 0x88, 0x00, 0x00, 0x03, 0x00, 0x08, 0x00, 0x00, 0x03, 0x01, 0xE0, 0x78,
    0xC1, 0x92, 0x40, 0,    0,    0,    1,    0x68, 0xEB, 0xC3, 0xCB, 0x22, 0xC0};  // and PPS
constexpr unsigned char kKeySlice[] = {0, 0, 0, 1, 0x65, 0x88, 0x84};
constexpr unsigned char kSlice[] = {0, 0, 0, 1, 0x41, 0x9A};

// The shortest time that is a whole number of frames and of audio packets.
constexpr int kRoundSeconds = 8;
constexpr int kRoundFrames = kRoundSeconds * Mix::kFps;
constexpr int kRoundAudio = kRoundSeconds * Mix::kRate / Mix::kSamples;
static_assert(kRoundAudio * Mix::kSamples == kRoundSeconds * Mix::kRate);

std::size_t RoundBytes(Mix::Sizes sizes) {
  std::int64_t const second = std::int64_t{Mix::kFps - 1} * sizes.frame + sizes.key;
  return static_cast<std::size_t>(kRoundSeconds * second + std::int64_t{kRoundAudio} * sizes.audio);
}

// Random bytes without start codes: of two adjacent bytes at least one is not zero.
void FillRandom(std::vector<unsigned char>& memory) {
  Random random;
  for (std::size_t i = 0; i + 8 <= memory.size(); i += 8) {
    std::uint64_t const word = random() | 0x0100010001000100;
    std::memcpy(&memory[i], &word, 8);
  }
}

void WriteHead(unsigned char* at, bool key) {
  auto const put = [&at](auto const& bytes) {
    std::memcpy(at, bytes, sizeof bytes);
    at += sizeof bytes;
  };
  put(kDelimiter);
  if (key) put(kParameterSets);
  if (key)
    put(kKeySlice);
  else
    put(kSlice);
}

Ref<IMedia> VideoMedia() {
  auto media = Ref<IMedia>::Take(IMedia::New("h264"));
  media->Set("width", 1920);
  media->Set("height", 1080);
  media->Set("interlace", false);
  media->Set("framerate", base::Fraction(Mix::kFps, 1));
  return media;
}

Ref<IMedia> AudioMedia() {
  auto media = Ref<IMedia>::Take(IMedia::New("pcm"));
  media->Set("rate", Mix::kRate);
  media->Set("channel", 2);
  media->Set("width", 2);
  media->Set("depth", 16);
  media->Set("samples", Mix::kSamples);
  return media;
}

}  // namespace

Mix::Mix(std::size_t bytes, Sizes sizes) : _video(VideoMedia()), _audio(AudioMedia()) {
  std::size_t const round = RoundBytes(sizes);
  std::size_t const rounds = std::max<std::size_t>((bytes + round - 1) / round, 1);
  _bytes = rounds * round;
  for (std::size_t r = 0; r < rounds; ++r) PlanRound(sizes, _plan);
}

std::vector<Mix::Unit> const& Mix::Units() const {
  if (!_units.empty()) return _units;
  _memory.resize(_bytes);
  FillRandom(_memory);
  // Payloads are in random order in memory. In sequence, the processor would prefetch the next one
  // for a plain copy.
  std::vector<std::size_t> order(_plan.size());
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  std::vector<unsigned char*> places(_plan.size());
  unsigned char* at = _memory.data();
  for (std::size_t i : order) {
    places[i] = at;
    at += _plan[i].size;
  }
  for (std::size_t i = 0; i < _plan.size(); ++i) _units.push_back(MakeUnit(_plan[i], places[i]));
  return _units;
}

std::int64_t Mix::Bytes(std::int64_t packets) const {
  std::int64_t bytes = 0;
  for (std::size_t i = 0; packets > 0; --packets, i = (i + 1) % _plan.size())
    bytes += _plan[i].size;
  return bytes;
}

void Mix::PlanRound(Sizes sizes, std::vector<Plan>& plan) {
  for (int frame = 0, audio = 0; frame < kRoundFrames || audio < kRoundAudio;) {
    bool const video =
        audio == kRoundAudio || (frame < kRoundFrames && frame * kRate <= audio * kSamples * kFps);
    bool const key = video && frame % kFps == 0;
    plan.push_back({video, key, !video ? sizes.audio : key ? sizes.key : sizes.frame});
    ++(video ? frame : audio);
  }
}

Mix::Unit Mix::MakeUnit(Plan const& plan, unsigned char* data) const {
  if (plan.video) WriteHead(data, plan.key);
  auto packet = Packet::Wrap(data, plan.size);
  if (plan.key) packet->Flags(Packet::kKey);
  packet->Media(plan.video ? _video.get() : _audio.get());
  constexpr base::int64 kSecond = 1000000000;
  packet->Duration(plan.video ? kSecond / kFps : kSecond * kSamples / kRate);
  return {packet, plan.video};
}

}  // namespace kestro::bench
