#include "SideFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "base/File.h"

namespace kestro::tool {

using base::File;
using base::FileIO;

namespace {
struct Registry {
  std::mutex mutex;
  std::map<unsigned, SideFile*> files;
  unsigned last = 0;
};
Registry registry;
}  // namespace

static unsigned Enter(SideFile* file) {
  std::lock_guard lock(registry.mutex);
  registry.files[++registry.last] = file;
  return registry.last;
}

static SideFile* Find(unsigned id) {
  std::lock_guard lock(registry.mutex);
  auto const found = registry.files.find(id);
  return found != registry.files.end() ? found->second : nullptr;
}

SideFile::SideFile(std::string const& avi) : _path(avi + kEnding), _id(Enter(this)) {}

SideFile::~SideFile() {
  std::lock_guard lock(registry.mutex);
  registry.files.erase(_id);
}

bool SideFile::Attach(base::Object& muxer) {
  using Callback = void (*)(unsigned, unsigned, unsigned char const*, unsigned, unsigned);
  Callback const callback = [](unsigned id, unsigned, unsigned char const* data, unsigned size,
                               unsigned) {
    if (SideFile* file = Find(id)) file->Store(data, size);
  };
  return muxer.Set("notifyid", _id) && muxer.Set("periodicSyncCallback", callback);
}

// Of the data alone: the name does not last, and Rename makes the one that does durable.
static bool SyncData(int handle) {
  int result = 0;
  do result = fdatasync(handle);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

void SideFile::Store(unsigned char const* data, unsigned size) {
  std::string const fresh = _path + ".new";
  FileIO file(fresh.c_str(), "rwbc");
  bool done = file.Opened() && file.Write(data, size) == size;
  int why = file.Error();
  if (done && !SyncData(file.Handle())) done = false, why = errno;
  if (!file.Close() && done) done = false, why = file.Error();
  if (done && !File::Rename(fresh.c_str(), _path.c_str())) done = false, why = errno;
  if (done) {
    _stored = true;
    return;
  }
  if (_fault.empty()) _fault = _path + ": " + std::strerror(why);
  File::Delete(fresh.c_str());
}

void SideFile::Remove() {
  if (_stored && !File::Delete(_path.c_str()) && _fault.empty())
    _fault = _path + ": " + std::strerror(errno);
}

}  // namespace kestro::tool
