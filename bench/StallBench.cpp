// Measures a camera that delivers in real time, recorded to devices that stall.
#include <cstring>
#include <fstream>
#include <iterator>

#include "LavfMuxer.h"
#include "RecordBench.h"
#include "Recorder.h"
#include "Recording.h"
#include "SlowFile.h"

namespace kestro::bench {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// 15.6 s: enough for a 99.9th percentile, and at least 22 MiB.
constexpr std::int64_t kPackets = 1200;
constexpr int kBlockBytes = 512 << 10;  // in the muxer's cache
constexpr double kLate = 1e-3;          // seconds

struct Scene {
  char const* name;
  int mbit;  // per second
  milliseconds stall;
  bool fits;      // the device requests enough cache blocks for its stalls
  int speed = 1;  // speed-up of both packets and stalls

  std::int64_t Bytes() const { return std::int64_t{mbit} * 1000000 / 8; }  // per second
  Mix::Sizes Sizes() const {
    Mix::Sizes sizes;
    auto const audio = std::int64_t{sizes.audio} * Mix::kRate / Mix::kSamples;
    sizes.frame = static_cast<int>((Bytes() - audio - sizes.key) / (Mix::kFps - 1));
    return sizes;
  }
  SlowFile::Delays Delays() const {
    SlowFile::Delays delays;
    delays.stall = stall / speed;
    std::int64_t const bytes = Bytes() * stall.count() / 1000 + Sizes().key;
    if (fits) delays.blocks = static_cast<int>((bytes + kBlockBytes - 1) / kBlockBytes + 1);
    return delays;
  }
};

// Delivers packets at the times of a camera, and measures how long each push takes.
void PlayInTime(Mix const& mix, int speed, Feed const& push, Laps& laps) {
  auto const begin = std::chrono::steady_clock::now();
  mix.Play(kPackets, [&](Mix::Unit const& unit, std::size_t index, std::int64_t number) {
    nanoseconds const at(number * unit.packet->Duration() / speed);
    std::this_thread::sleep_until(begin + at);
    laps.Time([&] { push(unit, index, number); });
  });
}

// Throws unless the file has exactly the packets of the mix, without the delimiters.
void RequireAll(std::string const& path, Mix const& mix) {
  auto const chunks = Recording(path).Chunks();
  Require(chunks.size() == kPackets, "packets were lost");
  std::ifstream file(path, std::ios::binary);
  std::vector<char> bytes;
  auto chunk = chunks.begin();
  mix.Play(kPackets, [&](Mix::Unit const& unit, std::size_t, std::int64_t) {
    auto const size = static_cast<std::size_t>(unit.Size());
    constexpr std::size_t kDelimiter = 6;
    Require(chunk->size == (unit.video ? size - kDelimiter : size), "packets are out of order");
    bytes.resize(chunk->size);
    file.seekg(chunk->at).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    auto const* const expected = unit.Data() + (size - bytes.size());
    Require(file && std::memcmp(bytes.data(), expected, bytes.size()) == 0, "packets are damaged");
    ++chunk;
  });
}

// A run reports the 99.9th percentile.
void Finish(Stopwatch& watch, Laps& laps) {
  watch.Seconds(laps.Quantile(0.999));
  laps.AddFigures(watch);
  watch.AddFigure({"late", static_cast<double>(laps.Above(kLate)), "packets"});
}

using Play = std::function<void(Feed const&)>;
using Record = std::function<void(Mix const& mix, base::IO& io, Play const& play)>;

Contender Filmed(char const* name, Scene const& scene, SlowFile::Delays const& delays, bool ours,
                 Record const& record) {
  auto const mix = std::make_shared<Mix>(1, scene.Sizes());
  return {name, [mix, delays, ours, record, speed = scene.speed](Stopwatch& watch) {
            Target const target{TmpfsPath("stall")};
            target.Clear();
            Laps laps;
            {
              SlowFile file(target.path, "rwbc", delays);
              Require(file.Opened(), "cannot create a file on tmpfs");
              record(*mix, file, [&](Feed const& push) { PlayInTime(*mix, speed, push, laps); });
            }
            if (ours) RequireAll(target.path, *mix);
            target.Clear();
            Finish(watch, laps);
          }};
}

void RecordWith(Recorder& recorder, Play const& play) {
  recorder.Start();
  play([&](Mix::Unit const& unit, std::size_t, std::int64_t number) {
    recorder.Push(unit, number);
  });
  recorder.Close();
}

void RecordPlain(Mix const& mix, base::IO& io, Play const& play) {
  Recorder recorder(mix, io);
  RecordWith(recorder, play);
}

template <bool queue>
void RecordSynced(Mix const& mix, base::IO& io, Play const& play) {
  Recorder recorder(mix, io, "avi-muxer-vfi");
  recorder.Set("flushtime", 1000);
  if (queue) recorder.AddQueue();
  RecordWith(recorder, play);
}

Case QueueCase() {
  Scene const scene{"", 12, milliseconds(0), false};
  SlowFile::Delays delays;
  delays.flush = milliseconds(100);
  return {"sync/queue_p999_ms",
          "ms",
          1e3,
          kPackets,
          {Filmed("ours", scene, delays, true, RecordSynced<true>),
           Filmed("no queue", scene, delays, true, RecordSynced<false>)},
          1};
}

}  // namespace

std::vector<Case> StallCases() {
  std::vector<Case> cases;
  for (Scene const& scene : {Scene{"slow/push_p999_ms", 12, milliseconds(500), false},
                             Scene{"slow/push24_p999_ms", 24, milliseconds(500), true},
                             Scene{"slow/stall_p999_ms", 12, milliseconds(2000), false, 4}}) {
    auto const delays = scene.Delays();
    Case c{scene.name, "ms", 1e3, kPackets, {}, 1};
    c.contenders.push_back(Filmed("ours", scene, delays, true, RecordPlain));
#ifdef KESTRO_BENCH_LIBAV
    c.contenders.push_back(Filmed("libavformat", scene, delays, false, LavfRecord));
#endif
    cases.push_back(std::move(c));
  }
  cases.push_back(QueueCase());
  return cases;
}

}  // namespace kestro::bench
