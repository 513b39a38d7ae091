#include "crash/Tool.h"

#include <filesystem>
#include <fstream>

#include "cli/Errors.h"
#include "recorder/SideFile.h"
#include "recorder/SyncPlan.h"
#include "repair/InPlace.h"
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

namespace {

// Notes every change of a file, and makes nothing durable.
class LogFile : public base::IOFilter {
 public:
  LogFile(std::unique_ptr<base::IO> file, CrashLog& log)
      : IOFilter("LogFile", *file), _file(std::move(file)), _log(log) {}

  unsigned Write(void const* data, unsigned size) override {
    _log.Add({Op::kWrite, 0, Tell(), std::string(static_cast<char const*>(data), size)});
    return _file->Write(data, size);
  }
  bool Flush() override {
    _log.Add({Op::kFlush});
    return true;
  }
  bool FlushData() override {
    _log.Add({Op::kData});
    return true;
  }
  bool Truncate(int64 size) override {
    int64 const old = Size();
    if (size > old)
      _log.Add({Op::kWrite, 0, old, std::string(static_cast<std::size_t>(size - old), '\0')});
    else
      _log.Add({Op::kCut, 0, size});
    return _file->Truncate(size);
  }

 private:
  std::unique_ptr<base::IO> const _file;
  CrashLog& _log;
};

class LogStorage : public record::Storage {
 public:
  LogStorage(CrashLog& log, std::map<std::string, int> const& numbers)
      : _log(log), _numbers(numbers) {}
  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override {
    auto file = Storage::Open(path, mode);
    if (file == nullptr || mode[1] == 'b') return file;
    return std::make_unique<LogFile>(std::move(file), _log);
  }
  bool Remove(std::string const& path) override {
    if (auto const found = _numbers.find(path); found != _numbers.end())
      _log.Add({Op::kName, 0, found->second});
    return Storage::Remove(path);
  }

 private:
  CrashLog& _log;
  std::map<std::string, int> const& _numbers;
};

std::vector<unsigned char> Load(std::string const& path) {
  std::vector<unsigned char> bytes(std::filesystem::file_size(path));
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

std::string Text(std::vector<unsigned char> const& bytes) { return {bytes.begin(), bytes.end()}; }

}  // namespace

Mending Mend(std::string const& folder, test::MemoryIO& file, Others& others) {
  tool::InPlaceJob job{folder + "/in.avi", "in.avi"};
  job.largestJunk = kLargestJunk;
  auto const names = avi::SlotFile::Names(job.path + avi::SlotFile::kEnding);
  for (std::string const& name : names) std::filesystem::remove(name);
  Store(job.path, file.bytes);
  CrashLog log;
  log.Add({Op::kWrite, 0, 0, Text(file.bytes)});
  log.Add({Op::kFlush});
  std::map<std::string, int> numbers;
  for (auto const& [number, io] : others) {  // which take turns
    std::string const& name = names[static_cast<std::size_t>(number - 1) % 2];
    Store(name, io.bytes);
    numbers[name] = number;
    log.Add({Op::kName, number});
    log.Add({Op::kWrite, number, 0, Text(io.bytes)});
    log.Add({Op::kFlush, number});
  }
  log.Add({Op::kFolder});
  Mending mending;
  mending.begin = log.Size();
  LogStorage storage(log, numbers);
  try {
    tool::RepairInPlace(storage, job);
  } catch (tool::Error const& error) {
    mending.refused = true;
    mending.why = error.what();
  }
  mending.ops = log.Take();
  if (!mending.refused) mending.whole = tool::RepairInPlace(storage, job).whole;
  file.bytes = Load(job.path);
  for (auto const& [name, number] : numbers)
    if (!std::filesystem::exists(name)) others.erase(number);
  return mending;
}

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
  repaired = Load(job.output);
  return static_cast<long>(report.lost.packets);
} catch (tool::Error const&) {
  return -1;
}

}  // namespace kestro::crash
