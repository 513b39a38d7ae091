#include "recorder/Storage.h"

#include <cerrno>
#include <filesystem>

#include "base/File.h"
#include "recorder/SystemFolder.h"

namespace kestro::record {

// An absolute path: the host would read "S:/name" as a name on a drive.
static std::string Absolute(std::string const& path) {
  std::error_code failed;
  std::string const absolute = std::filesystem::absolute(path, failed);
  return failed ? path : absolute;  // the working folder is gone
}

std::unique_ptr<base::IO> Storage::Open(std::string const& path, char const* mode) {
  auto file = std::make_unique<base::FileIO>(Absolute(path).c_str(), mode);
  if (file->Opened()) return file;
  errno = file->Error();
  return nullptr;
}

bool Storage::Remove(std::string const& path) {
  return base::File::Delete(Absolute(path).c_str()) || errno == ENOENT;
}

bool Storage::Exists(std::string const& path) {
  std::error_code none;
  return std::filesystem::exists(path, none);
}

base::uint64 Storage::Free(std::string const& path) {
  std::error_code failed;
  auto const space = std::filesystem::space(path, failed);
  return failed ? UINT64_MAX : space.available;
}

bool Storage::List(std::string const& folder, std::vector<Entry>& entries) {
  SystemFolder const opened(folder);
  return opened.List(entries);
}

}  // namespace kestro::record
