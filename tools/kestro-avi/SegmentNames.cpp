#include "SegmentNames.h"

#include <algorithm>
#include <filesystem>

#include "Errors.h"
#include "SlotFile.h"
#include "output/NumberedFiles.h"

namespace kestro::tool {

namespace fs = std::filesystem;

SegmentNames::SegmentNames(std::string const& output, std::string const& beside, bool force,
                           std::vector<std::string> const& inputs)
    : _output(output),
      _beside(beside),
      _force(force),
      _inputs(inputs),
      _numbered(NumberedFiles::Numbered(output)) {
  std::string const name = fs::path(output).filename();
  if (std::count(name.begin(), name.end(), '%') != (_numbered ? 1 : 0))
    throw Error(kUsage, output + ": a % in the name stands for one number, such as %05d");
  if (name.empty()) throw Error(kUsage, "\"" + output + "\" names no file");
  std::error_code none;
  if (fs::is_directory(Name(1), none)) throw Error(kIo, Name(1) + ": is a directory");
  if (std::string const why = Obstacle(Name(1)); !why.empty()) throw Error(kUsage, why);
}

std::string SegmentNames::Name(std::uint64_t number) const {
  if (_numbered) return NumberedFiles::Name(_output, number);
  if (number == 1) return _output;
  fs::path const path(_output);
  std::string const rest = path.stem().string() + "-%05d" + path.extension().string();
  return NumberedFiles::Name(path.parent_path() / rest, number);
}

std::string SegmentNames::Next() {
  while (_number > 0 && !Obstacle(Name(_number + 1)).empty()) ++_number;
  return Name(++_number);
}

// Why a file cannot be written; empty when it can.
std::string SegmentNames::Obstacle(std::string const& name) const {
  std::string why = Obstacle(name, " (--force overwrites it)");
  for (std::string const& beside : SlotFile::Names(name + _beside))
    if (why.empty() && !_beside.empty())
      why = Obstacle(
          beside,
          ", the headers and index of a recording that was cut off (--force overwrites it)");
  return why;
}

std::string SegmentNames::Obstacle(std::string const& path, char const* advice) const {
  std::error_code none;
  if (!fs::exists(path, none)) return {};
  if (!_force) return path + ": exists already" + advice;
  for (std::string const& input : _inputs)
    if (fs::equivalent(input, path, none)) return path + ": is an input too";
  return {};
}

}  // namespace kestro::tool
