#include "media/StreamFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cli/Errors.h"

namespace kestro::tool {

namespace fs = std::filesystem;

StreamFile::StreamFile(std::string const& path)
    : _new(path), _file(fs::absolute(_new.Temporary()).c_str(), "wb") {
  if (!_file.Opened()) throw Error(kIo, path + ": " + std::strerror(_file.Error()));
}

void StreamFile::Store(void const* data, std::size_t size) {
  auto const count = static_cast<unsigned>(size);  // pieces are small
  if (_file.Write(data, count) != count)
    throw Error(kIo, _new.Path() + ": " + std::strerror(_file.Error()));
}

void StreamFile::Write(std::size_t, avi::Piece const& piece) { Store(piece.data, piece.size); }

std::string StreamFile::Finish() {
  if (!_file.Close()) throw Error(kIo, _new.Path() + ": " + std::strerror(_file.Error()));
  return _new.Keep();
}

}  // namespace kestro::tool
