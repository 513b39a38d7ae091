// A file system of limited size.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "support/MemoryIO.h"

namespace kestro::test {

// A tmpfs that only this process and its children see. Needs root, or user namespaces and a process
// with one thread.
class SmallCard {
 public:
  explicit SmallCard(int mib) : _path(NewFolder()) {
    std::string const size = "size=" + std::to_string(mib) + "m";
    EXPECT_EQ(mount("card", _path.c_str(), "tmpfs", 0, size.c_str()), 0) << std::strerror(errno);
  }
  ~SmallCard() {
    umount2(_path.c_str(), MNT_DETACH);
    rmdir(_path.c_str());
  }
  SmallCard(SmallCard const&) = delete;
  SmallCard& operator=(SmallCard const&) = delete;

  static bool Possible() {
    static bool const isolated = Isolate();
    return isolated;
  }
  std::string operator/(std::string const& name) const { return _path + "/" + name; }

 private:
  static bool Isolate() {
    auto const user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(CLONE_NEWNS) != 0) {
      if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
      std::ofstream("/proc/self/setgroups") << "deny";
      std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
      std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  std::string const _path;
};

}  // namespace kestro::test

// Before the test starts a thread.
#define REQUIRE_SMALL_CARDS() \
  if (!SmallCard::Possible()) GTEST_SKIP() << "a file system cannot be mounted here"
