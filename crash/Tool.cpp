#include "crash/Tool.h"

#include <filesystem>
#include <fstream>

#include "cli/Errors.h"
#include "recorder/SideFile.h"
#include "recorder/SyncPlan.h"
#include "repair/Repair.h"

namespace kestro::crash {

namespace {

record::TrackInfo Video() {
  record::TrackInfo info;
  info.width = 320;
  info.height = 180;
  info.frameRate = {25, 1};
  return info;
}

record::TrackInfo Audio(int rate) {
  record::TrackInfo info;
  info.codec = record::TrackInfo::kPcm;
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
Setup Configure(base::Object& muxer, Scenario const& scenario) {
  Mode const mode = scenario.mode;
  record::Tracks const tracks{Video(), Audio(8000), Audio(4000)};
  record::TagOptions options;
  options.isft.assign(200, 's');
  auto tags = std::make_shared<record::Tags>(options, options.isft, 3, 0);
  record::SyncOptions sync;
  sync.mode = mode == Mode::kInPlace ? record::SyncOptions::kInPlace
              : mode == Mode::kImage ? record::SyncOptions::kImage
                                     : record::SyncOptions::kCallback;
  sync.interval_ns = Interval_ms(mode) * 1000000LL;
  sync.reserveBytes = std::uint64_t{16} * scenario.room;
  record::SyncPlan const plan(sync, tracks, {25, 1}, *tags);
  plan.Apply(muxer);
  muxer.Set("vidtag", tags->Get());
  return tags;
}

long Repair(std::string const& folder, std::vector<unsigned char> const& file, Others const& others,
            std::vector<unsigned char>& repaired) try {
  tool::RepairJob const job{folder + "/in.avi", folder + "/out.avi", "", true};
  Store(job.input, file);
  auto const names = avi::SlotFile::Names(job.input + avi::SlotFile::kEnding);
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
