// Fails calls that the host makes of the system.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>

namespace kestro::test {

enum class Call { kOpen, kRead, kWrite, kSync, kSyncAll, kTruncate, kClose, kRename };

// While it lives, the calls on files whose path ends so are counted, and some fail; one at a time.
class SystemFault {
 public:
  // As an error: the call succeeds and moves a part. A negative error comes with the next call
  // then.
  static constexpr int kPart = 0;

  // Counted from 1: this call only, or all from it on (of interrupted ones, every second).
  SystemFault(Call call, std::string ending, int nth, bool forever = false, int error = EIO);
  // Bad sectors from one byte to another: reads return what lies before them, and fail within.
  SystemFault(std::string ending, std::int64_t from, std::int64_t to = INT64_MAX);
  ~SystemFault();
  SystemFault(SystemFault const&) = delete;
  int Failures() const { return _failures; }

  // Called by what stands in for the system's functions: 0 to go on, -1 to move a part, an error.
  int Next(Call call, std::string const& path);
  // How many bytes of a read come.
  std::size_t Readable(std::string const& path, std::size_t size, std::int64_t at);

 private:
  bool Names(std::string const& path) const;

  Call const _call;
  std::string const _ending;
  int const _nth;
  bool const _forever;
  int const _error;
  std::int64_t const _from = 0, _to = 0;
  int _count = 0;
  std::atomic<int> _failures{0};
};

// While it lives, files seem to be on a file system of that type, and read-only where asked; one at
// a time.
class FileSystem {
 public:
  explicit FileSystem(long type, bool readOnly = false);  // -1: it cannot be asked
  ~FileSystem();
  FileSystem(FileSystem const&) = delete;
  // The calls since the last time: "a" syncfs, "d" fdatasync, "f" fsync, "?" fstatfs.
  std::string Calls();
};

// Open descriptors of the process.
int Descriptors();

}  // namespace kestro::test
