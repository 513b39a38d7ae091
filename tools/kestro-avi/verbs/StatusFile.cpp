#include "verbs/StatusFile.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include "cli/Answer.h"
#include "cli/Descriptor.h"

namespace kestro::tool {

StatusFile::StatusFile(std::string path, StatusReport const& report)
    : _path(std::move(path)), _report(report), _thread([this] { Run(); }) {}

StatusFile::~StatusFile() {
  {
    std::lock_guard lock(_mutex);
    _ended = true;
  }
  _wake.notify_one();
  _thread.join();
}

void StatusFile::Run() {
  for (bool ended = false; !ended;) {
    Write();
    std::unique_lock lock(_mutex);
    ended = _wake.wait_for(lock, std::chrono::seconds(1), [this] { return _ended; });
  }
  Write();
}

static bool WriteFile(std::string const& path, std::string const& text) {
  // Does not wait for the reader of a pipe.
  Descriptor const file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  if (file.Number() < 0) return false;
  errno = ENOSPC;  // when not everything fits
  return write(file.Number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void StatusFile::Write() {
  std::string const next = _path + ".tmp";
  if (WriteFile(next, DocumentText(_report.Get())) && std::rename(next.c_str(), _path.c_str()) == 0)
    return;
  int const failed = errno;
  unlink(next.c_str());
  if (!std::exchange(_warned, true))
    ReportWarning("the status cannot be written: " + _path + ": " + std::strerror(failed));
}

}  // namespace kestro::tool
