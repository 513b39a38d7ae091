// Fails system calls of the host.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>

namespace kestro::test {

enum class Call { kOpen, kRead, kWrite, kSync, kSyncAll, kTruncate, kClose, kRename };

// While it lives, calls on files whose path has this ending are counted, and some fail. One at a
// time.
class SystemFault {
 public:
  // As an error: the call succeeds and moves a part. After a negative error, the next call fails.
  static constexpr int kPart = 0;

  // `nth` counts from 1. `forever`: all calls from it on fail, with EINTR every second one.
  SystemFault(Call call, std::string ending, int nth, bool forever = false, int error = EIO);
  // Bad sectors between two offsets: reads return what precedes them, and fail within.
  SystemFault(std::string ending, std::int64_t from, std::int64_t to = INT64_MAX);
  ~SystemFault();
  SystemFault(SystemFault const&) = delete;
  int Failures() const { return _failures; }

  // Called by the functions that replace the system's. Returns 0 to go on, -1 to move a part, or an
  // error.
  int Next(Call call, std::string const& path);
  // How many bytes can be read.
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

// While it lives, files seem to be on a file system of that type. One at a time.
class FileSystem {
 public:
  explicit FileSystem(long type, bool readOnly = false);  // -1: fstatfs fails
  ~FileSystem();
  FileSystem(FileSystem const&) = delete;
  // The calls since the last time: "a" syncfs, "d" fdatasync, "f" fsync, "?" fstatfs.
  std::string Calls();
};

// Open descriptors of the process.
int Descriptors();

}  // namespace kestro::test
