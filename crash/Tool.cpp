#include "crash/Tool.h"

#include <filesystem>
#include <fstream>

#include "Errors.h"
#include "SideFile.h"
#include "SyncPlan.h"
#include "repair/FoundTrack.h"
#include "repair/Repair.h"

namespace kestro::crash {

namespace {

tool::TrackInfo Video() {
  tool::TrackInfo info;
  info.codec = "h264";
  info.width = 320;
  info.height = 180;
  info.frameRate = {25, 1};
  return info;
}

tool::TrackInfo Sound(int rate) {
  tool::TrackInfo info;
  info.kind = tool::TrackInfo::kSound;
  info.codec = "pcm";
  info.rate = rate;
  info.channels = 1;
  info.samples = 160;
  return info;
}

void Store(std::string const& path, std::vector<unsigned char> const& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<char const*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

// As the tool records. The head reaches into a second sector of 512 bytes.
Setup Configure(base::Object& muxer, Mode mode) {
  tool::FoundTrack tracks[] = {tool::FoundTrack(Video()), tool::FoundTrack(Sound(8000)),
                               tool::FoundTrack(Sound(4000))};
  tool::TagOptions options;
  options.isft.assign(200, 's');
  auto tags = std::make_shared<tool::Tags>(options, 3, 0);
  tool::SyncOptions sync;
  sync.mode = mode == Mode::kInPlace ? tool::SyncOptions::kInPlace
              : mode == Mode::kImage ? tool::SyncOptions::kImage
                                     : tool::SyncOptions::kCallback;
  sync.interval_ns = Interval_ms(mode) * 1000000LL;
  sync.reserveBytes = 16 * kEntries;
  tool::SyncPlan const plan(sync, {&tracks[0], &tracks[1], &tracks[2]}, {25, 1}, *tags);
  plan.Apply(muxer);
  muxer.Set("vidtag", tags->Get());
  return tags;
}

bool HasRepair() { return true; }

long Repair(std::string const& folder, std::vector<unsigned char> const& file, Others const& others,
            std::vector<unsigned char>& repaired) try {
  tool::RepairJob const job{folder + "/in.avi", folder + "/out.avi", "", true};
  Store(job.input, file);
  auto const names = tool::SlotFile::Names(job.input + tool::SideFile::kEnding);
  for (std::string const& name : names) std::filesystem::remove(name);
  for (auto const& [number, io] : others)  // which take turns
    Store(names[static_cast<std::size_t>(number - 1) % 2], io.bytes);
  tool::RepairReport const report = tool::Repair(job);
  std::ifstream made(job.output, std::ios::binary);
  repaired.assign(std::istreambuf_iterator<char>(made), {});
  return static_cast<long>(report.lost.packets);
} catch (tool::Error const&) {
  return -1;
}

}  // namespace kestro::crash
