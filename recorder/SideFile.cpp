#include "recorder/SideFile.h"

#include <map>
#include <mutex>

#include "recorder/Storage.h"

namespace kestro::record {

namespace {
struct Registry {
  std::mutex mutex;
  std::map<unsigned, SideFile*> files;
  unsigned last = 0;
};
Registry registry;
}  // namespace

static unsigned Register(SideFile* file) {
  std::lock_guard lock(registry.mutex);
  registry.files[++registry.last] = file;
  return registry.last;
}

static SideFile* Find(unsigned id) {
  std::lock_guard lock(registry.mutex);
  auto const found = registry.files.find(id);
  return found != registry.files.end() ? found->second : nullptr;
}

namespace {
class StorageFolder : public avi::SlotFile::Folder {
 public:
  explicit StorageFolder(Storage& storage) : _storage(storage) {}
  std::unique_ptr<base::IO> Create(std::string const& path) override {
    return _storage.Open(path, "rwbc");
  }
  bool Remove(std::string const& path) override { return _storage.Remove(path); }

 private:
  Storage& _storage;
};
}  // namespace

SideFile::SideFile(std::string const& avi, Storage& storage)
    : _folder(std::make_unique<StorageFolder>(storage)),
      _slots(avi + avi::SlotFile::kEnding, avi::SlotFile::kFirstSlot, _folder.get()),
      _id(Register(this)) {}

SideFile::~SideFile() {
  std::lock_guard lock(registry.mutex);
  registry.files.erase(_id);
}

bool SideFile::Attach(base::Object& muxer) {
  using Callback = void (*)(unsigned, unsigned, unsigned char const*, unsigned, unsigned);
  Callback const callback = [](unsigned id, unsigned, unsigned char const* data, unsigned size,
                               unsigned) {
    if (SideFile* file = Find(id)) file->NoteFault(file->_slots.Store(data, size));
  };
  return muxer.Set("notifyid", _id) && muxer.Set("periodicSyncCallback", callback);
}

void SideFile::NoteFault(bool stored) {
  if (!stored && _fault.empty()) _fault = _slots.Error();
}

void SideFile::Remove() { NoteFault(_slots.Remove()); }

}  // namespace kestro::record
