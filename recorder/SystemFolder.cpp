#include "recorder/SystemFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace kestro::record {

SystemFolder::SystemFolder(std::string const& folder)
    : _folder(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      _error(_folder < 0 ? errno : 0) {}

SystemFolder::~SystemFolder() {
  if (_folder >= 0) close(_folder);
}

bool SystemFolder::Look(std::string const& name, Storage::Entry& entry) const {
  struct stat about = {};
  if (_folder < 0) {
    errno = _error;
    return false;
  }
  if (fstatat(_folder, name.c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) return false;
  entry.name = name;
  entry.bytes = static_cast<std::uint64_t>(about.st_size);
  entry.modified_ns = std::int64_t{about.st_mtim.tv_sec} * 1000000000 + about.st_mtim.tv_nsec;
  entry.plain = S_ISREG(about.st_mode) && about.st_nlink == 1;
  entry.id = about.st_ino;
  return true;
}

bool SystemFolder::List(std::vector<Storage::Entry>& entries) const {
  // A second descriptor: reading moves the position of the first.
  int const again = openat(_folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (_folder < 0) errno = _error;
  if (again < 0) return false;
  std::unique_ptr<DIR, int (*)(DIR*)> const folder(fdopendir(again), closedir);
  if (!folder) {
    close(again);
    return false;
  }
  for (;;) {
    errno = 0;
    dirent const* const next = readdir(folder.get());
    if (next == nullptr) return errno == 0;
    Storage::Entry entry;
    if (Look(next->d_name, entry)) entries.push_back(std::move(entry));
  }
}

bool SystemFolder::Remove(Storage::Entry const& entry) const {
  Storage::Entry now;
  if (!Look(entry.name, now)) return false;
  // FAT gives files new numbers now and then.
  bool const same =
      now.id == entry.id || (now.bytes == entry.bytes && now.modified_ns == entry.modified_ns);
  if (!now.plain || !same) {
    errno = ESTALE;
    return false;
  }
  return unlinkat(_folder, entry.name.c_str(), 0) == 0;
}

bool SystemFolder::Exists(std::string const& name) const {
  Storage::Entry entry;
  return Look(name, entry) || errno != ENOENT;
}

base::uint64 SystemFolder::Free() const {
  struct statvfs space = {};
  if (_folder < 0 || fstatvfs(_folder, &space) != 0) return UINT64_MAX;
  return base::uint64{space.f_bavail} * space.f_frsize;
}

}  // namespace kestro::record
