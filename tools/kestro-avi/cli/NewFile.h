// A file that is not there before it is complete.
#pragma once

#include <string>

namespace kestro::tool {

// A file that takes its name when it is finished; until then, and when it never is, nothing of that
// name is touched. The errors thrown name the file.
class NewFile {
 public:
  explicit NewFile(std::string const& path) : _path(path), _temporary(TemporaryOf(path)) {}
  ~NewFile();

  // Refuses a name that stands for something else than a file, or, unless `force` is set, for one.
  static void Check(std::string const& path, bool force);
  static std::string TemporaryOf(std::string const& path) { return path + ".part"; }
  std::string const& Path() const { return _path; }
  std::string const& Temporary() const { return _temporary; }
  // Returns its size, for people. What has been made durable can get a durable name.
  std::string Keep(bool durably = false);

 private:
  std::string _path, _temporary;
  bool _kept = false;
};

// Writes a whole file. Returns its size, for people. Throws Error.
std::string WriteFile(std::string const& path, void const* data, unsigned size);

}  // namespace kestro::tool
