#include "cli/NewFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/File.h"
#include "cli/Errors.h"

namespace kestro::tool {

namespace fs = std::filesystem;

void NewFile::Check(std::string const& path, bool force) {
  if (path == "-")
    throw Error(kUsage, "-: this cannot go to standard output (./- is a file of that name)");
  std::error_code none;
  auto const status = fs::status(path, none);
  if (!fs::exists(status)) return;
  if (!fs::is_regular_file(status)) throw Error(kIo, path + ": is not a file");
  if (!force) throw Error(kUsage, path + ": exists already (--force overwrites it)");
}

NewFile::~NewFile() {
  std::error_code none;
  if (!_kept) fs::remove(_temporary, none);
}

std::uint64_t NewFile::Keep(bool durably) {
  std::error_code failed;
  if (!durably)
    fs::rename(_temporary, _path, failed);
  else if (!base::File::Rename(fs::absolute(_temporary).c_str(), fs::absolute(_path).c_str()))
    failed.assign(errno, std::generic_category());
  if (failed) throw Error(kIo, _path + ": " + failed.message());
  _kept = true;
  return fs::file_size(_path, failed);
}

std::uint64_t WriteFile(std::string const& path, void const* data, unsigned size) {
  NewFile file(path);
  base::FileIO io(fs::absolute(file.Temporary()).c_str(), "wb");
  if (!io.Opened() || io.Write(data, size) != size || !io.Close())
    throw Error(kIo, path + ": " + std::strerror(io.Error()));
  return file.Keep();
}

}  // namespace kestro::tool
