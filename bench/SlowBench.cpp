// Measures playing from a device with slow reads, with and without the cache.
#include "DemuxBench.h"
#include "Player.h"
#include "SlowFile.h"

namespace kestro::bench {

namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kEntries = 100000, kPlayed = 100;
constexpr auto kRead = milliseconds(20);
constexpr auto kPace = milliseconds(5);  // per packet: 2.5 times the recorded speed

std::unique_ptr<SlowFile> OpenSlowly(std::string const& path) {
  SlowFile::Delays delays;
  delays.read = kRead;
  return std::make_unique<SlowFile>(path, "rb", delays);
}

enum Cache { kNone, kCached, kPreloaded };

// A player of a slow file. With the preload, waits until it is complete.
struct SlowPlayer {
  SlowPlayer(std::string const& path, Cache cache) : file(OpenSlowly(path)) {
    player.Set("io", static_cast<base::IO*>(file.get()));
    if (cache == kNone) return;
    base::int64 const all = file->Size();
    player.Set("preloadsz", all);
    player.Set("vlcPreload", cache == kPreloaded);
    for (base::int64 got = 0; cache == kPreloaded && got < all;) {
      std::this_thread::sleep_for(kRead);
      Require(player.Stream()->Get("preloaded", got), "the cache has no preload");
    }
  }
  std::unique_ptr<SlowFile> file;  // outlives the player
  Player player{"CusAviDemuxer"};
};

Contender Opener(char const* name, SharedRecording const& file, Cache cache) {
  return {name, [file, cache](Stopwatch& watch) {
            SlowPlayer slow(file->Path(), cache);
            watch.UseWallTime();
            watch.Start();
            slow.player.Open();
            watch.Stop();
          }};
}

// Measures how long a player waits for packets at a constant pace, without the first one.
Contender PacedPlayer(char const* name, SharedRecording const& file, Cache cache) {
  return {name, [file, cache](Stopwatch& watch) {
            SlowPlayer slow(file->Path(), cache);
            slow.player.Open();
            Require(slow.player.Next(), "no packets");
            watch.UseWallTime();
            for (std::int64_t i = 1; i < kPlayed; ++i) {
              std::this_thread::sleep_for(kPace);
              watch.Start();
              Require(slow.player.Next(), "packets are missing");
              watch.Stop();
            }
          }};
}

}  // namespace

std::vector<Case> SlowCases() {
  auto const head = std::make_shared<Recording>("slow", Mix::Sizes{64, 64, 64}, kEntries);
  auto const film = std::make_shared<Recording>("slow-play", Mix::Sizes{}, 4 * kPlayed);
  Case open{"slow/open_preloaded",
            "ms",
            1e3,
            kEntries,
            {Opener("ours", head, kPreloaded), Opener("no preload", head, kNone)},
            3};
#ifdef KESTRO_BENCH_LIBAV
  open.contenders.push_back(LavfOpener(head, OpenSlowly));
#endif
  return {open,
          {"slow/play",
           "ms",
           1e3,
           kPlayed,
           {PacedPlayer("ours", film, kCached), PacedPlayer("no cache", film, kNone)},
           3}};
}

}  // namespace kestro::bench
