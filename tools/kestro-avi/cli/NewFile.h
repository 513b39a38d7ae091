// Creates files that get their name only when they are complete.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::tool {

// A file that is written under a temporary name, and renamed when it is complete. Until then an
// existing file of that name stays as it is. Errors name the file.
class NewFile {
 public:
  explicit NewFile(std::string const& path) : _path(path), _temporary(TemporaryOf(path)) {}
  ~NewFile();

  // Throws Error when the name belongs to something that is not a file or, unless `force` is set,
  // to an existing file.
  static void Check(std::string const& path, bool force);
  static std::string TemporaryOf(std::string const& path) { return path + ".part"; }
  std::string const& Path() const { return _path; }
  std::string const& Temporary() const { return _temporary; }
  // Gives the file its name; `durably`: so that data and name survive a power cut. Returns the
  // size.
  std::uint64_t Keep(bool durably = false);

 private:
  std::string _path, _temporary;
  bool _kept = false;
};

// Writes a whole file. Returns its size. Throws Error.
std::uint64_t WriteFile(std::string const& path, void const* data, unsigned size);

}  // namespace kestro::tool
