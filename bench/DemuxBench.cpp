#include "DemuxBench.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

#include "Player.h"

namespace kestro::bench {

namespace {

constexpr std::int64_t kIndexEntries = 1000000;
constexpr int kSeekMinutes = 30;
constexpr int kSeeks = 1000;

Contender Reader(SharedRecording const& file) {
  return {"ours", [file](Stopwatch& watch) {
            Player player(file->Path());
            player.Open();
            std::int64_t count = 0;
            watch.Start();
            while (player.Next()) ++count;
            watch.Stop();
            Require(count == file->Packets(), "packets are missing");
          }};
}

// The least work of any reader: one positioned read of each chunk, into a separate buffer.
Contender PlainReader(SharedRecording const& file) {
  return {"pread", [file](Stopwatch& watch) {
            auto const chunks = file->Chunks();
            int const fd = open(file->Path().c_str(), O_RDONLY | O_CLOEXEC);
            Require(fd >= 0, "cannot open the recording");
            watch.Start();
            for (Recording::Chunk const& chunk : chunks) {
              void* const buffer = std::malloc(chunk.size);
              auto const got = pread(fd, buffer, chunk.size, chunk.at);
              std::free(buffer);
              Require(got == static_cast<ssize_t>(chunk.size), "a read fell short");
            }
            watch.Stop();
            close(fd);
          }};
}

Contender Opener(SharedRecording const& file) {
  return {"ours", [file](Stopwatch& watch) {
            Player player(file->Path());
            watch.Start();
            player.Open();
            watch.Stop();
          }};
}

Contender Seeker(SharedRecording const& file, std::vector<int> const& times) {
  return {"ours", [file, times](Stopwatch& watch) {
            Player player(file->Path());
            player.Open();
            watch.Start();
            for (int const ms : times) {
              player.Seek(ms);
              Require(player.Next(), "a seek goes to the end");
            }
            watch.Stop();
          }};
}

Case ReadCase(std::int64_t packets) {
  auto const file = std::make_shared<Recording>("read", Mix::Sizes{}, packets);
  double const bytes = static_cast<double>(Mix(1, {}).Bytes(packets));
  Case c{"demux/read", "s/GB", 1e9 / bytes, packets, {Reader(file), PlainReader(file)}};
#ifdef KESTRO_BENCH_LIBAV
  c.contenders.push_back(LavfReader(file));
#endif
  return c;
}

Case SeekCase() {
  // Frames can be small; audio has a fixed number of bytes per second.
  constexpr std::int64_t kSeconds = std::int64_t{60} * kSeekMinutes;
  constexpr std::int64_t kPackets = kSeconds * Mix::kFps + kSeconds * Mix::kRate / Mix::kSamples;
  auto const file = std::make_shared<Recording>("seek", Mix::Sizes{256, 1024, 4096}, kPackets);
  std::mt19937 random(1);
  std::uniform_int_distribution<int> time(0, static_cast<int>(kSeconds) * 1000 - 1);
  std::vector<int> times(kSeeks);
  for (int& ms : times) ms = time(random);
  Case c{"demux/seek", "us", 1e6 / kSeeks, kSeeks, {Seeker(file, times)}};
#ifdef KESTRO_BENCH_LIBAV
  c.contenders.push_back(LavfSeeker(file, times));
#endif
  return c;
}

}  // namespace

SharedRecording OpenRecording() {
  return std::make_shared<Recording>("open", Mix::Sizes{64, 64, 64}, kIndexEntries);
}

std::vector<Contender> Openers(SharedRecording const& file) {
  std::vector<Contender> openers{Opener(file)};
#ifdef KESTRO_BENCH_LIBAV
  openers.push_back(LavfOpener(file));
#endif
  return openers;
}

std::vector<Case> DemuxCases(std::int64_t packets) {
  auto const openers = Openers(OpenRecording());
  return {ReadCase(packets), {"demux/open", "ms", 1e3, kIndexEntries, openers}, SeekCase()};
}

}  // namespace kestro::bench
