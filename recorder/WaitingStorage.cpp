#include "recorder/WaitingStorage.h"

#include <cerrno>
#include <cstring>

namespace kestro::record {

static bool IsFull(int error) { return error == ENOSPC || error == EDQUOT; }

class WaitingStorage::File : public base::IOFilter {
 public:
  File(std::unique_ptr<base::IO> file, std::shared_ptr<NewFile> about, Hooks const& hooks)
      : IOFilter("WaitingFile", *file),
        _file(std::move(file)),
        _about(std::move(about)),
        _hooks(hooks) {}

  unsigned Write(void const* data, unsigned size) override {
    auto const* const bytes = static_cast<char const*>(data);
    unsigned done = 0;
    for (;;) {
      unsigned const written = _file->Write(bytes + done, size - done);
      if (written <= size - done) done += written;
      Measure();
      if (done == size || !IsFull(_file->Error()) || !_hooks.awaitSpace(_about->optional))
        return done;
    }
  }
  bool Truncate(base::int64 size) override {
    bool const cut = _file->Truncate(size);
    if (cut) _about->size = static_cast<std::uint64_t>(size);
    return cut;
  }

 private:
  void Measure() {
    auto const end = static_cast<std::uint64_t>(_file->Tell()), before = _about->size.load();
    if (end <= before) return;
    _about->size = end;
    _hooks.grew(end - before);
  }

  std::unique_ptr<base::IO> const _file;
  std::shared_ptr<NewFile> const _about;
  Hooks const& _hooks;
};

std::unique_ptr<base::IO> WaitingStorage::Open(std::string const& path, char const* mode) {
  auto about = std::strcmp(mode, "rwbc") == 0 ? _hooks.created(path) : nullptr;
  for (;;) {
    auto file = _storage.Open(path, mode);
    if (about == nullptr) return file;
    if (file != nullptr) return std::make_unique<File>(std::move(file), std::move(about), _hooks);
    int const error = errno;
    if (IsFull(error) && _hooks.awaitSpace(about->optional)) continue;
    errno = error;
    return nullptr;
  }
}

}  // namespace kestro::record
