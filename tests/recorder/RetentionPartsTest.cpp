// The parts of loop recording: limits, ages and folders.
#include <gmock/gmock.h>

#include <filesystem>
#include <map>

#include "recorder/Catalogue.h"
#include "recorder/RecorderSession.h"
#include "recorder/Retention.h"
#include "recorder/SpaceLimits.h"
#include "recorder/SystemFolder.h"

namespace kestro::test {
namespace {

namespace fs = std::filesystem;
using record::Event;

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::int64_t kSecond = 1000 * kMs;

// On a card of 64 MiB. Some room is kept besides the limit, but not so much that no file remains.
TEST(RetentionParts, KeepsFilesWhateverTheLimitOfFreeSpace) {
  struct {
    std::uint64_t keepFree, own;  // MiB
    bool space;
  } const cases[] = {{0, 56, false}, {0, 61, true}, {32, 27, false}, {32, 31, true},
                     {60, 3, false}, {60, 4, true}, {62, 1, false},  {62, 2, true}};
  for (auto const& c : cases) {
    record::RetentionOptions limits;
    limits.keepFree = c.keepFree * kMiB;
    record::SpaceUsage usage;
    usage.own = c.own * kMiB;
    usage.free = 64 * kMiB - usage.own;
    EXPECT_EQ(Judge(limits, usage).space, c.space) << c.keepFree << ", own " << c.own;
  }
}

// Two old files, and one that is open and will grow by 2 MiB. The limit leaves just that, and not a
// byte more. Later its device is full until both old files are gone, and then for good.
TEST(RetentionParts, DeletesWhatTheOpenFileNeeds) {
  struct SizedStorage : MemoryStorage {
    bool Remove(std::string const& path) override {
      if (path == "cam-2.avi") File("cam-3.avi")->Capacity(3 * kMiB / 2);
      if (free > 0) free += kMiB;
      return MemoryStorage::Remove(path);
    }
    bool List(std::string const& folder, std::vector<Entry>& entries) override {
      bool const listed = MemoryStorage::List(folder, entries);
      for (Entry& entry : entries)
        entry.bytes = static_cast<base::uint64>(File(entry.name)->Size());
      return listed;
    }
    void Add(int number) {
      Open("cam-" + std::to_string(number) + ".avi", "rwbc")->Write(data.data(), kMiB);
    }
    std::string const data = std::string(kMiB, 'x');
  } storage;
  storage.free = 99 * kMiB;
  storage.Add(1), storage.Add(2);
  record::RecorderOptions options;
  options.path = "cam-%d.avi";
  options.threadless = true;
  options.storage = &storage;
  options.retention.keepBytes = 6 * kMiB;
  std::string kinds;
  record::Retention::Hooks const hooks{
      {[&](Event const& event) { kinds += std::to_string(event.kind); }, nullptr}, [] {}};
  record::Retention retention(options, hooks);
  retention.Start();
  auto const file = retention.Files().Open("cam-3.avi", "rwbc");
  auto const side = retention.Files().Open("cam-3.avi.sync", "rwbc");
  EXPECT_EQ(file->Write(storage.data.data(), kMiB), kMiB);
  auto const run = [&](std::uint64_t size) {
    retention.Expect("cam-3.avi", size);
    retention.Run();
    return kinds;
  };
  std::string const note = std::to_string(Event::kNote), gone = std::to_string(Event::kDeleted);
  EXPECT_EQ(run(kMiB), note) << "files become small";
  EXPECT_EQ(run(3 * kMiB + kMiB / 4), note);
  EXPECT_EQ(run(3 * kMiB + kMiB / 4 + 1), note + gone);

  storage.Add(1);
  retention.Rescan();
  retention.Expect("cam-3.avi", 0);
  storage.free = 0;
  storage.File("cam-3.avi")->Capacity(kMiB);
  EXPECT_EQ(file->Write(storage.data.data(), kMiB / 2), kMiB / 2);
  EXPECT_EQ(kinds, note + gone + gone + gone);
  EXPECT_EQ(file->Write("x", 1), 0u);
  EXPECT_TRUE(retention.Full());
  record::Status status;
  retention.AddTo(status);
  EXPECT_LT(status.longestSpaceWait_us, 1900000u) << "there was nothing to wait for";

  storage.free = 99 * kMiB;
  for (int i = 4; i < 14; ++i) storage.Add(i);
  record::Retention next(options, hooks);
  next.Start();
  next.Stop();
  EXPECT_THAT(storage.Names(), testing::ElementsAre("cam-10.avi", "cam-11.avi", "cam-12.avi",
                                                    "cam-13.avi", "cam-9.avi"));
}

// Files as a scan finds them, oldest first, with the ages that they have.
TEST(RetentionParts, AgesGoByNumberAndSurviveClockJumps) {
  constexpr std::int64_t kNow = 1800000000, kUnset = 1000 - kNow;
  struct File {
    char const* name;
    std::int64_t modified_s;  // after kNow
    std::int64_t age_s;
  };
  struct {
    char const* name;
    std::int64_t wall_s;      // after kNow
    std::vector<File> files;  // the session has lasted 100 s; c and d are of it
  } const cases[] = {
      {"plain", 0, {{"a", -900, 900}, {"b", -500, 500}, {"c", 0, 50}, {"d", 0, 20}}},
      {"no older file is younger", 0, {{"a", -300, 500}, {"b", -500, 500}, {"c", 0, 50}}},
      {"not younger than the session", 0, {{"a", -7, 100}, {"b", 50, 100}, {"c", 0, 50}}},
      {"not set then", 0, {{"a", kUnset, 100}, {"b", kUnset, 100}, {"c", -kNow, 50}}},
      {"not set now", kUnset, {{"a", -900, 100}, {"c", kUnset, 50}, {"d", kUnset, 20}}},
      {"set forward by a year", 31536000, {{"c", 0, 50}, {"d", 31536000, 20}}},
  };
  for (auto const& c : cases) {
    std::vector<record::OwnFile> files;
    std::map<std::string, std::int64_t> const ended = {{"c", 150 * kSecond}, {"d", 180 * kSecond}};
    for (File const& file : c.files) {
      files.emplace_back().name = file.name;
      files.back().modified_ns = (kNow + file.modified_s) * kSecond;
    }
    auto const ages =
        record::Ages_ns(files, {200 * kSecond, 100 * kSecond, (kNow + c.wall_s) * kSecond, ended});
    for (std::size_t i = 0; i < files.size(); ++i)
      EXPECT_EQ(ages[i] / kSecond, c.files[i].age_s) << c.name << ": " << files[i].name;
  }
}

TEST(RetentionParts, RemovesOnlyTheFileThatItHasSeen) {
  std::string const folder = NewFolder(), path = folder + "/a";
  record::SystemFolder const opened(folder);
  auto const listed = [&] {
    std::vector<record::Storage::Entry> all;
    EXPECT_TRUE(opened.List(all));
    return *std::find_if(all.begin(), all.end(), [](auto const& entry) { return entry.plain; });
  };
  std::ofstream(path) << "old";
  auto const old = listed();
  std::ofstream(path + "b") << "newer";
  fs::rename(path + "b", path);
  EXPECT_TRUE(!opened.Remove(old) && errno == ESTALE);
  EXPECT_EQ(FileText(path), "newer");
  EXPECT_TRUE(opened.Remove(listed()));
  EXPECT_TRUE(fs::is_empty(folder));
}

}  // namespace
}  // namespace kestro::test
