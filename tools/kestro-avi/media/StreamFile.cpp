#include "media/StreamFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cli/Console.h"
#include "cli/Errors.h"

namespace kestro::tool {

namespace fs = std::filesystem;

StreamFile::StreamFile(std::string const& path) {
  if (path == "-") return;
  _new = std::make_unique<NewFile>(path);
  _file = std::make_unique<base::FileIO>(fs::absolute(_new->Temporary()).c_str(), "wb");
  if (!_file->Opened()) Fail();
}

void StreamFile::Fail() const {
  throw Error(kIo, _new->Path() + ": " + std::strerror(_file->Error()));
}

void StreamFile::Store(void const* data, std::size_t size) {
  auto const count = static_cast<unsigned>(size);  // pieces are small
  _stored += size;
  if (!_new)
    WriteData({static_cast<char const*>(data), size});
  else if (_file->Write(data, count) != count)
    Fail();
}

void StreamFile::Rewind() {
  if (!_file->Seek(0, base::IO::kBegin)) Fail();
}

void StreamFile::Write(std::size_t, avi::Piece const& piece) { Store(piece.data, piece.size); }

Written StreamFile::Finish() {
  if (!_new) return {_stored};
  if (!_file->Close()) Fail();
  return {_new->Keep()};
}

}  // namespace kestro::tool
