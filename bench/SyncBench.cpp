// Measures the cost of syncs while recording, compared with a muxer without syncs.
#include "RecordBench.h"
#include "Recorder.h"
#include "Recording.h"
#include "SlowFile.h"
#include "Target.h"

namespace kestro::bench {

namespace {

using Size = unsigned long long;

constexpr std::int64_t kSeconds = 100;
constexpr std::int64_t kPackets = kSeconds * (Mix::kFps + Mix::kRate / Mix::kSamples + 1);
constexpr Mix::Sizes kSizes{34 << 10, 34 << 10, 4 << 10};
constexpr unsigned kNever = 0xFFFFFFFF;

// Space for ten minutes, as for files that are split after that time.
constexpr Size kIndex = 8 + kPackets * 16 * 6, kHeader = 1028;

enum Way { kPlain, kInPlace, kImage, kCallback };

void TakeImage(unsigned, unsigned, unsigned char const*, unsigned, unsigned) {}

std::unique_ptr<base::Object> TagSet(Way way) {
  auto tags = base::Make<base::Object>("AviVideoTags");
  Require(tags != nullptr, "the plug-in has no tag set");
  Require(tags->Set("idx1_first", static_cast<unsigned char>(way == kImage)), "idx1_first");
  return tags;
}

void SetUp(Recorder& recorder, Way way, unsigned interval_ms) {
  recorder.Set("flushtime", interval_ms);
  recorder.Set("reservedSize", way == kImage ? kHeader + kIndex : kIndex);
  if (way == kInPlace) return;
  recorder.Set("periodicSyncEn", true);
  recorder.Set("periodicSyncHeaderSize", kHeader);
  recorder.Set("periodicSyncIdx1Size", kIndex);
  recorder.Set("periodicSyncCallback", &TakeImage);
}

Contender Synced(char const* name, std::string const& path, Way way, unsigned interval_ms) {
  auto const mix = std::make_shared<Mix>(1, kSizes);
  return {name, [mix, path, way, interval_ms](Stopwatch& watch) {
            Target const target{path};
            target.Clear();
            SlowFile file(path, "rwbc", {});
            Require(file.Opened(), "cannot create a file");
            auto const tags = TagSet(way);
            Recorder recorder(*mix, file, way == kPlain ? "avi-muxer" : "avi-muxer-vfi");
            recorder.Set("vidtag", tags.get());
            if (way != kPlain) SetUp(recorder, way, interval_ms);
            Laps laps;
            watch.Start();
            recorder.Start();
            mix->Play(kPackets, [&](Mix::Unit const& unit, std::size_t, std::int64_t number) {
              laps.Time([&] { recorder.Push(unit, number); });
            });
            recorder.Close();
            watch.Stop();
            target.Clear();
            laps.AddFigures(watch);
            watch.AddFigure({"written", static_cast<double>(file.Written()) / 1e6, "MB"});
          }};
}

}  // namespace

std::vector<Case> SyncCases() {
  auto const bytes = static_cast<double>(Mix(1, kSizes).Bytes(kPackets));
  struct Row {
    char const* name;
    std::string path;
    unsigned interval_ms;
  };
  std::vector<Case> cases;
  for (Row const& row :
       {Row{"sync/tmpfs_1s", TmpfsPath("sync"), 1000},
        Row{"sync/tmpfs_3s", TmpfsPath("sync"), 3000}, Row{"sync/disk_1s", DiskPath("sync"), 1000},
        Row{"sync/disk_3s", DiskPath("sync"), 3000}})
    cases.push_back(
        {row.name,
         "s/GB",
         1e9 / bytes,
         kPackets,
         {Synced("ours", row.path, kInPlace, row.interval_ms),
          Synced("image", row.path, kImage, row.interval_ms),
          Synced("callback", row.path, kCallback, row.interval_ms),
          Synced("sync off", row.path, kInPlace, kNever), Synced("plain", row.path, kPlain, 0)},
         15});
  return cases;
}

}  // namespace kestro::bench
