// The program's functions stand in for the system's also in the shared libraries it uses.
#include "rig/record/System.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

#define KESTRO_STANDS_IN extern "C" __attribute__((visibility("default")))

namespace kestro::rig {

System theSystem;

System::Plant System::Planted(std::string const& name) {
  char const* const names[] = {"", "no-barrier", "data-only", "rename", "front-first"};
  auto const found = std::find(std::begin(names), std::end(names), name);
  if (found == std::end(names)) std::exit((std::fprintf(stderr, "no plant %s\n", name.c_str()), 2));
  return static_cast<Plant>(found - std::begin(names));
}

namespace {

struct Late {
  int fd;
  off_t at;
  std::string bytes;
};
std::mutex mutex;
std::vector<Late> late;  // writes of data that wait for the front
bool frontWritten = false;

template <class Function>
Function* Real(Function*, char const* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
int RealSync(int fd) { return Real(&fdatasync, "fdatasync")(fd); }
ssize_t RealWrite(int fd, void const* data, size_t size, off_t at) {
  return Real(&pwrite, "pwrite64")(fd, data, size, at);
}

enum Role { kOther, kRecording, kSide };
Role RoleOf(int fd) {
  char path[4096];
  ssize_t const size = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
  std::string const name(path, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  if (name == theSystem.file) return kRecording;
  return name.rfind(theSystem.file + ".sync", 0) == 0 ? kSide : kOther;
}

int StoreLate(int done) {
  for (Late const& write : late)
    RealWrite(write.fd, write.bytes.data(), write.bytes.size(), write.at);
  if (!late.empty() && RealSync(late.back().fd) != 0) done = -1;
  late.clear();
  frontWritten = false;
  return done;
}

// A copy of the side file takes its place.
int ReplaceSide(int fd) {
  std::string const name = theSystem.file + ".sync", fresh = name + ".new";
  std::string bytes(static_cast<std::size_t>(std::max<off_t>(lseek(fd, 0, SEEK_END), 0)), '\0');
  int const copy = open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
  bool const done = copy >= 0 && pread(fd, bytes.data(), bytes.size(), 0) >= 0 &&
                    RealWrite(copy, bytes.data(), bytes.size(), 0) >= 0 && RealSync(copy) == 0;
  close(copy);
  int const folder = open(name.substr(0, name.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY);
  bool const renamed =
      done && rename(fresh.c_str(), name.c_str()) == 0 && Real(&fsync, "fsync")(folder) == 0;
  close(folder);
  return renamed ? 0 : -1;
}

}  // namespace
}  // namespace kestro::rig

using namespace kestro::rig;

KESTRO_STANDS_IN ssize_t pwrite(int fd, void const* data, size_t size, off_t at) {
  if (theSystem.plant != System::kFrontFirst || RoleOf(fd) == kOther)
    return RealWrite(fd, data, size, at);
  std::lock_guard lock(mutex);
  long const end = static_cast<long>(at) + static_cast<long>(size);
  if (theSystem.barriers == 0) theSystem.front = std::max(theSystem.front, end);
  if (RoleOf(fd) == kSide || at < theSystem.front) {
    frontWritten = true;
    return RealWrite(fd, data, size, at);
  }
  late.push_back({fd, at, std::string(static_cast<char const*>(data), size)});
  return static_cast<ssize_t>(size);
}

KESTRO_STANDS_IN int fdatasync(int fd) {
  Role const role = RoleOf(fd);
  (role == kSide ? theSystem.sideBarriers : theSystem.barriers) += role != kOther;
  if (theSystem.plant == System::kNoBarrier) return 0;
  if (theSystem.plant == System::kRename && role == kSide) return ReplaceSide(fd);
  if (theSystem.plant != System::kFrontFirst || role == kOther) return RealSync(fd);
  std::lock_guard lock(mutex);
  return frontWritten ? StoreLate(RealSync(fd)) : 0;
}

KESTRO_STANDS_IN int fsync(int fd) {
  return theSystem.plant == System::kNoBarrier ? 0 : Real(&fsync, "fsync")(fd);
}

KESTRO_STANDS_IN int syncfs(int fd) noexcept {
  bool const nothing =
      theSystem.plant == System::kNoBarrier || theSystem.plant == System::kDataOnly;
  return nothing ? 0 : Real(&syncfs, "syncfs")(fd);
}
