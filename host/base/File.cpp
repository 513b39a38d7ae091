#include "base/File.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

namespace kestro::base {

namespace {

struct OpenFile {
  int fd;
  int64 position;
  std::string unsynced = {};       // path of a new file until its name is durable
  std::optional<bool> onFat = {};  // set by the first Sync
};

OpenFile& Of(void* file) { return *static_cast<OpenFile*>(file); }

struct Folders {
  std::mutex mutex;
  std::map<char, std::string> drives;
  std::string temporary;
};

Folders& TheFolders() {
  static auto* folders = new Folders;
  return *folders;
}

// Translates one of our paths to a system path. Empty if the drive is not mounted.
std::string Resolve(char const* path) {
  if (path == nullptr) return {};
  auto& folders = TheFolders();
  std::lock_guard lock(folders.mutex);
  if (std::strncmp(path, ":/", 2) == 0) {
    char const* fallback = std::getenv("TMPDIR");
    if (fallback == nullptr || *fallback == '\0') fallback = "/tmp";
    return (folders.temporary.empty() ? fallback : folders.temporary) + (path + 1);
  }
  if (path[0] != '\0' && std::strncmp(path + 1, ":/", 2) == 0) {
    auto const drive = folders.drives.find(path[0]);
    return drive == folders.drives.end() ? std::string() : drive->second + (path + 2);
  }
  return path;
}

int OpenRetrying(std::string const& path, int flags) {
  int fd;
  do fd = open(path.c_str(), flags | O_CLOEXEC, 0666);
  while (fd < 0 && errno == EINTR);
  return fd;
}

// Repeats a positioned transfer until all bytes are transferred, it fails, or the file ends.
template <class Transfer>
unsigned Whole(unsigned size, bool& failed, Transfer transfer) {
  unsigned done = 0;
  failed = false;
  while (done < size) {
    ssize_t const n = transfer(done, size - done);
    if (n < 0 && errno == EINTR) continue;
    failed = n < 0;
    if (n <= 0) break;
    done += static_cast<unsigned>(n);
  }
  return done;
}

// If a later part of the read fails, returns the bytes read before it.
unsigned ReadAt(int fd, int64 at, void* data, unsigned size, bool& failed) {
  unsigned const done = Whole(size, failed, [&](unsigned from, unsigned n) {
    return pread(fd, static_cast<char*>(data) + from, n, at + from);
  });
  return failed && done == 0 ? IO::kFailed : done;
}

unsigned WriteAt(int fd, int64 at, void const* data, unsigned size) {
  bool failed;
  return Whole(size, failed, [&](unsigned from, unsigned n) {
    ssize_t const written = pwrite(fd, static_cast<char const*>(data) + from, n, at + from);
    if (written == 0) errno = ENOSPC;  // no progress and no error code
    return written;
  });
}

template <class Call>
int Retrying(Call call) {
  int result;
  do result = call();
  while (result != 0 && errno == EINTR);
  return result;
}

// If the type is unknown, assume FAT: its sync calls work on every file system.
bool OnFat(int fd) {
  struct statfs about = {};
  return Retrying([&] { return fstatfs(fd, &about); }) != 0 || about.f_type == MSDOS_SUPER_MAGIC;
}

// After an error, the kernel may make the file system read-only. syncfs then succeeds without
// writing anything.
bool SyncFileSystem(int fd) {
  if (Retrying([fd] { return syncfs(fd); }) != 0) return false;
  struct statfs about = {};
  if (Retrying([&] { return fstatfs(fd, &about); }) != 0 || (about.f_flags & ST_RDONLY) == 0)
    return true;
  errno = EROFS;
  return false;
}

// On FAT, the kernel may have copied a new file size to the block of the directory entry already.
// fsync and fdatasync do not write that block then, but syncfs does. On FAT, however, syncfs does
// not flush the device's write cache as the other two do, so both calls are needed.
bool Durable(int fd, bool onFat, int (*sync)(int)) {
  if (onFat && !SyncFileSystem(fd)) return false;
  // A pipe or device fails with EINVAL: it has nothing to make durable.
  return Retrying([=] { return sync(fd); }) == 0 || errno == EINVAL;
}

// Makes the names in a file's folder durable. A folder that we may not read cannot be synced, which
// is not an error.
bool SyncFolder(std::string const& path) {
  auto const slash = path.rfind('/');
  int const folder =
      OpenRetrying(slash == path.npos ? "." : path.substr(0, slash + 1), O_RDONLY | O_DIRECTORY);
  if (folder < 0) return errno == EACCES;
  bool const durable = Durable(folder, OnFat(folder), fsync);
  int const why = errno;
  close(folder);
  errno = why;
  return durable;
}

}  // namespace

void* File::Open(char const* path, char const* mode) {
  std::string const resolved = Resolve(path);
  std::string const how = mode != nullptr ? mode : "";
  if (resolved.empty()) {
    errno = ENOENT;
    return nullptr;
  }
  int flags;
  if (how == "rb") {
    flags = O_RDONLY;
  } else if (how == "r+b") {
    flags = O_RDWR;
  } else if (how == "wb") {
    flags = O_RDWR | O_CREAT | O_TRUNC;
  } else if (how == "rwbc") {
    // Create a new file; never open one that another process has just created with this name.
    unlink(resolved.c_str());
    flags = O_RDWR | O_CREAT | O_EXCL;
  } else {
    errno = EINVAL;
    return nullptr;
  }
  int const fd = OpenRetrying(resolved, flags);
  if (fd < 0) return nullptr;
  struct stat about = {};
  if (fstat(fd, &about) == 0 && S_ISDIR(about.st_mode)) {
    close(fd);
    errno = EISDIR;
    return nullptr;
  }
  bool const named = (flags & O_CREAT) != 0 && S_ISREG(about.st_mode);
  return new OpenFile{fd, 0, named ? resolved : ""};
}

bool File::Close(void* file) {
  if (file == nullptr) return true;
  bool const ok = close(Of(file).fd) == 0 || errno == EINTR;
  delete &Of(file);
  return ok;
}

unsigned File::Read(void* file, void* data, unsigned size) {
  bool failed;
  unsigned const got = ReadAt(Of(file).fd, Of(file).position, data, size, failed);
  if (got != IO::kFailed) Of(file).position += got;
  return got;
}

unsigned File::Write(void* file, void const* data, unsigned size) {
  unsigned const written = WriteAt(Of(file).fd, Of(file).position, data, size);
  Of(file).position += written;
  return written;
}

bool File::Seek(void* file, int64 offset, Position whence) {
  int64 base = 0;
  if (whence == kCurrent) base = Of(file).position;
  if (whence == kEnd) base = Size(file);
  int64 target;
  if (base < 0 || __builtin_add_overflow(base, offset, &target) || target < 0) return false;
  Of(file).position = target;
  return true;
}

int64 File::Tell(void* file) { return Of(file).position; }

int64 File::Size(void* file) {
  struct stat about;
  if (fstat(Of(file).fd, &about) != 0) return -1;
  if (!S_ISBLK(about.st_mode)) return about.st_size;
  return lseek(Of(file).fd, 0, SEEK_END);
}

bool File::Truncate(void* file, int64 size) {
  return Retrying([=] { return ftruncate(Of(file).fd, size); }) == 0;
}

bool File::Flush(void*) { return true; }

bool File::Sync(void* file) {
  OpenFile& open = Of(file);
  if (!open.onFat) open.onFat = OnFat(open.fd);
  bool const onFat = *open.onFat;  // on which syncfs also writes the name
  if (!Durable(open.fd, onFat, fdatasync)) return false;
  if (!open.unsynced.empty() && !onFat && !SyncFolder(open.unsynced)) return false;
  open.unsynced.clear();
  return true;
}

bool File::SyncData(void* file) { return Durable(Of(file).fd, false, fdatasync); }

int File::Handle(void* file) { return file != nullptr ? Of(file).fd : -1; }

bool File::Delete(char const* path) {
  std::string const resolved = Resolve(path);
  return !resolved.empty() && unlink(resolved.c_str()) == 0;
}

bool File::Rename(char const* from, char const* to) {
  std::string const source = Resolve(from), target = Resolve(to);
  if (source.empty() || target.empty()) {
    errno = ENOENT;
    return false;
  }
  if (rename(source.c_str(), target.c_str()) != 0) return false;
  return SyncFolder(target);
}

void File::Mount(char letter, char const* folder) {
  auto& folders = TheFolders();
  std::lock_guard lock(folders.mutex);
  if (folder != nullptr)
    folders.drives[letter] = folder;
  else
    folders.drives.erase(letter);
}

void File::TemporaryFolder(char const* folder) {
  auto& folders = TheFolders();
  std::lock_guard lock(folders.mutex);
  folders.temporary = folder != nullptr ? folder : "";
}

FileIO::FileIO(char const* path, char const* mode) : IO("FileIO"), _file(File::Open(path, mode)) {
  Note(_file != nullptr);
}

FileIO::~FileIO() { static_cast<void>(Close()); }

bool FileIO::Note(bool ok) {
  if (!ok) _error = errno;
  return ok;
}

bool FileIO::Close() {
  void* file = _file;
  _file = nullptr;
  return Note(File::Close(file));
}

int64 FileIO::Size() { return _file != nullptr ? File::Size(_file) : -1; }

bool FileIO::Seek(int64 offset, int whence) { return SeekTarget(*this, offset, whence, _position); }

unsigned FileIO::Read(void* data, unsigned size) {
  if (_file == nullptr) return kFailed;
  bool failed;
  unsigned const got = ReadAt(Of(_file).fd, _position, data, size, failed);
  Note(!failed);
  if (got != kFailed) _position += got;
  return got;
}

unsigned FileIO::Write(void const* data, unsigned size) {
  if (_file == nullptr) return 0;
  unsigned const written = WriteAt(Of(_file).fd, _position, data, size);
  Note(written == size);
  _position += written;
  return written;
}

bool FileIO::Flush() { return _file != nullptr && Note(File::Sync(_file)); }

bool FileIO::FlushData() { return _file != nullptr && Note(File::SyncData(_file)); }

int FileIO::Handle() { return File::Handle(_file); }

bool FileIO::Truncate(int64 size) { return _file != nullptr && Note(File::Truncate(_file, size)); }

}  // namespace kestro::base
