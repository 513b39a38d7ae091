// The functions below replace the system's, in the shared libraries that the program uses too.
#include "support/SystemFault.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <utility>

namespace kestro::test {
namespace {

std::mutex mutex;
SystemFault* current = nullptr;

struct {
  long type = 0;  // 0: the real one
  bool readOnly = false;
  std::string calls;
} fileSystem;

std::string PathOf(int fd) {
  char path[4096];
  ssize_t const size = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
  return {path, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

int Meets(Call call, int fd, char const* path = nullptr) {
  std::lock_guard lock(mutex);
  return current == nullptr ? 0 : current->Next(call, path != nullptr ? path : PathOf(fd));
}

std::size_t Readable(int fd, std::size_t size, off_t at) {
  std::lock_guard lock(mutex);
  return current == nullptr ? size : current->Readable(PathOf(fd), size, at);
}

int Note(char call) {
  std::lock_guard lock(mutex);
  if (fileSystem.type != 0) fileSystem.calls += call;
  return 0;
}

// Nothing is synced: no test crashes the machine.
int Synced(char name, Call call, int fd) {
  Note(name);
  errno = Meets(call, fd);
  return errno == 0 ? 0 : -1;
}

template <class Function>
Function* Real(Function*, char const* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Calls the system's function of a name unless the call should fail.
template <class Function, class... Arguments>
auto Through(int error, Function* function, char const* name, Arguments... arguments)
    -> decltype(function(arguments...)) {
  if (error > 0) return errno = error, -1;
  return Real(function, name)(arguments...);
}

// A part ends with a sector, which is stored as a whole.
std::size_t Part(int error, std::size_t size, off_t at) {
  std::size_t const part = (size + 2) / 3, end = static_cast<std::size_t>(at) + part;
  return error >= 0 ? size : part > 512 ? part - end % 512 : size;
}

}  // namespace

SystemFault::SystemFault(Call call, std::string ending, int nth, bool forever, int error)
    : _call(call), _ending(std::move(ending)), _nth(nth), _forever(forever), _error(error) {
  std::lock_guard lock(mutex);
  current = this;
}

SystemFault::SystemFault(std::string ending, std::int64_t from, std::int64_t to)
    : _call(Call::kRead),
      _ending(std::move(ending)),
      _nth(-1),
      _forever(false),
      _error(EIO),
      _from(from),
      _to(to) {
  std::lock_guard lock(mutex);
  current = this;
}

SystemFault::~SystemFault() {
  std::lock_guard lock(mutex);
  current = nullptr;
}

bool SystemFault::Names(std::string const& path) const {
  std::size_t const size = path.size() - (!path.empty() && path.back() == '/');
  return size >= _ending.size() &&
         path.compare(size - _ending.size(), _ending.size(), _ending) == 0;
}

std::size_t SystemFault::Readable(std::string const& path, std::size_t size, std::int64_t at) {
  if (at >= _to || !Names(path)) return size;
  auto const good = static_cast<std::size_t>(std::max<std::int64_t>(_from - at, 0));
  _failures += good == 0;
  return std::min(good, size);
}

int SystemFault::Next(Call call, std::string const& path) {
  if (call != _call || !Names(path)) return 0;
  int const after = ++_count - _nth;
  if (after == 0 && _error < 0) return -1;
  bool const fails =
      after == (_error < 0) || (_forever && after > 0 && (_error != EINTR || after % 2 == 0));
  _failures += fails;
  return !fails ? 0 : _error == kPart ? -1 : std::abs(_error);
}

FileSystem::FileSystem(long type, bool readOnly) { fileSystem = {type, readOnly, ""}; }

FileSystem::~FileSystem() { fileSystem = {}; }

std::string FileSystem::Calls() {
  std::lock_guard lock(mutex);
  return std::exchange(fileSystem.calls, "");
}

// Changes what the system returned to the type and state that a test wants.
template <class About>
int Ask(int answer, About* about) {
  if (fileSystem.type == 0 || answer != 0) return answer;
  Note('?');
  about->f_type = static_cast<decltype(about->f_type)>(fileSystem.type);
  about->f_flags = fileSystem.readOnly ? ST_RDONLY : 0;
  errno = EIO;
  return fileSystem.type == -1 ? -1 : 0;
}

int Descriptors() {
  namespace fs = std::filesystem;
  return static_cast<int>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

}  // namespace kestro::test

// The name of a function with 64-bit offsets.
#define KESTRO_64(name) #name "64"
#define KESTRO_STANDS_IN extern "C" __attribute__((visibility("default")))

using kestro::test::Ask;
using kestro::test::Call;
using kestro::test::Meets;
using kestro::test::Part;
using kestro::test::Readable;
using kestro::test::Synced;
using kestro::test::Through;

KESTRO_STANDS_IN int open(char const* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  unsigned const mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  return Through(Meets(Call::kOpen, -1, path), &open, KESTRO_64(open), path, flags, mode);
}

KESTRO_STANDS_IN ssize_t pread(int fd, void* data, size_t size, off_t at) {
  int const error = Meets(Call::kRead, fd);
  std::size_t const good = Readable(fd, size, at);
  return Through(good == 0 && size > 0 ? EIO : error, &pread, KESTRO_64(pread), fd, data,
                 std::min(good, Part(error, size, at)), at);
}

KESTRO_STANDS_IN ssize_t pwrite(int fd, void const* data, size_t size, off_t at) {
  int const error = Meets(Call::kWrite, fd);
  return Through(error, &pwrite, KESTRO_64(pwrite), fd, data, Part(error, size, at), at);
}

KESTRO_STANDS_IN int ftruncate(int fd, off_t size) noexcept {
  return Through(Meets(Call::kTruncate, fd), &ftruncate, KESTRO_64(ftruncate), fd, size);
}

KESTRO_STANDS_IN int fdatasync(int fd) { return Synced('d', Call::kSync, fd); }

KESTRO_STANDS_IN int fsync(int fd) { return Synced('f', Call::kSync, fd); }

KESTRO_STANDS_IN int syncfs(int fd) noexcept { return Synced('a', Call::kSyncAll, fd); }

KESTRO_STANDS_IN int fstatfs(int fd, struct statfs* about) noexcept {
  return Ask(Through(0, &fstatfs, KESTRO_64(fstatfs), fd, about), about);
}

KESTRO_STANDS_IN int rename(char const* from, char const* to) noexcept {
  return Through(Meets(Call::kRename, -1, to), &rename, "rename", from, to);
}

// The descriptor is closed even where an error is returned.
KESTRO_STANDS_IN int close(int fd) {
  int const error = Meets(Call::kClose, fd);
  int const closed = Through(0, &close, "close", fd);
  if (error > 0) errno = error;
  return error > 0 ? -1 : closed;
}
