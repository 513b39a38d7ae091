#include "recorder/MarkerFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace kestro::record {

using avi::KeepMarker;

static std::string NameFor(std::string const& path) { return path + KeepMarker::kEnding; }

// Something else than a file.
static bool IsSpecial(std::string const& name) {
  std::error_code none;
  auto const status = std::filesystem::symlink_status(name, none);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

std::string MarkerFile::Write(std::string const& path, KeepMarker const& marker) const {
  std::string const name = NameFor(path), text = marker.Compose();
  if (IsSpecial(name)) return {};
  auto const file = _storage.Open(name, _storage.Exists(name) ? "r+b" : "rwbc");
  if (file == nullptr) return std::strerror(errno);
  auto const size = static_cast<unsigned>(text.size());
  bool const written = file->Write(text.data(), size) == size;
  return written && file->Truncate(size) && file->Flush() ? "" : std::strerror(file->Error());
}

KeepMarker MarkerFile::Read(std::string const& path) const {
  std::string const name = NameFor(path);
  auto const file = !IsSpecial(name) && _storage.Exists(name) ? _storage.Open(name, "rb") : nullptr;
  if (file == nullptr) return {};
  std::string text(KeepMarker::kMostBytes, '\0');
  unsigned const size = file->Read(text.data(), static_cast<unsigned>(text.size()));
  if (size > text.size()) return {};
  return KeepMarker::Parse(std::string_view(text).substr(0, size));
}

int MarkerFile::Remove(std::string const& path) const {
  std::string const name = NameFor(path);
  if (!_storage.Exists(name) || _storage.Remove(name)) return 0;
  int const error = errno != 0 ? errno : EIO;
  return _storage.Exists(name) ? error : 0;  // another thread may have removed it
}

}  // namespace kestro::record
