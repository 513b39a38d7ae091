// The functions below replace the system's, in the shared libraries that the program uses too.
#include "rig/record/System.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#define KESTRO_STANDS_IN extern "C" __attribute__((visibility("default")))

namespace kestro::rig {

System theSystem;

System::Plant System::Planted(std::string const& name) {
  char const* const names[] = {"", "no-barrier", "data-only"};
  auto const found = std::find(std::begin(names), std::end(names), name);
  if (found == std::end(names)) std::exit((std::fprintf(stderr, "no plant %s\n", name.c_str()), 2));
  return static_cast<Plant>(found - std::begin(names));
}

namespace {

// Syncs through the system's function of a name, unless a plant prevents it.
int Sync(char const* name, int fd, bool prevented = false) {
  if (prevented || theSystem.plant == System::kNoBarrier) return 0;
  return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, name))(fd);
}

}  // namespace
}  // namespace kestro::rig

using namespace kestro::rig;

KESTRO_STANDS_IN int fdatasync(int fd) {
  char path[4096];
  ssize_t const size = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
  std::string const name(path, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  theSystem.barriers += name == theSystem.file;
  theSystem.sideBarriers += name.rfind(theSystem.file + ".sync", 0) == 0;
  return Sync("fdatasync", fd);
}

KESTRO_STANDS_IN int fsync(int fd) { return Sync("fsync", fd); }

KESTRO_STANDS_IN int syncfs(int fd) noexcept {
  return Sync("syncfs", fd, theSystem.plant == System::kDataOnly);
}
