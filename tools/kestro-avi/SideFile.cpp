#include "SideFile.h"

#include <map>
#include <mutex>

namespace kestro::tool {

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

SideFile::SideFile(std::string const& avi) : _slots(avi + kEnding), _id(Enter(this)) {}

SideFile::~SideFile() {
  std::lock_guard lock(registry.mutex);
  registry.files.erase(_id);
}

bool SideFile::Attach(base::Object& muxer) {
  using Callback = void (*)(unsigned, unsigned, unsigned char const*, unsigned, unsigned);
  Callback const callback = [](unsigned id, unsigned, unsigned char const* data, unsigned size,
                               unsigned) {
    if (SideFile* file = Find(id)) file->Note(file->_slots.Store(data, size));
  };
  return muxer.Set("notifyid", _id) && muxer.Set("periodicSyncCallback", callback);
}

void SideFile::Note(bool done) {
  if (!done && _fault.empty()) _fault = _slots.Error();
}

void SideFile::Remove() { Note(_slots.Remove()); }

}  // namespace kestro::tool
