// The names of a recording's files.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "avi/NumberedName.h"

namespace kestro::avi {

// Makes and recognises the names of the files of one recording. They have a number, which counts
// from 1, and may have the local time at which the file starts:
//
//   cam-%05d.avi                     cam-00001.avi, cam-00002.avi, ...
//   cam.avi                          cam.avi, cam-00002.avi, ...
//   cam-%Y%m%d-%H%M%S-%05N.avi       cam-20261122-145637-00001.avi, ...
//   cam-%H%M.avi                     cam-1456-00001.avi, ...
//
// With any of %Y, %m, %H, %M and %S in the name, %d is the day of the month and %N or %05N is the
// number, which is added at the end of the name if it is missing. Without them, %N and %d are the
// same. %% is a percent sign.
class NamePattern {
 public:
  static constexpr std::uint64_t kLargest = 999999999999999999;  // number

  explicit NamePattern(std::string const& name);  // without the folder

  // Whether each % has such a meaning, and there is at most one number. Otherwise do not use the
  // functions below.
  bool Valid() const { return _valid; }
  bool Dated() const { return _dated; }
  // Whether all names have a number: not so for "cam.avi".
  bool Numbered() const { return _numbered; }

  std::string Format(std::uint64_t number, std::tm const& start) const;
  // The number of a file whose name Format can have made; nothing for other names.
  std::optional<std::uint64_t> Match(std::string_view name) const;
  // Whether both make some name around this time, or take each other's for their own.
  bool Overlaps(NamePattern const& other, std::tm const& now) const;

 private:
  bool _valid = true, _dated = false, _numbered = true;
  std::string _first;            // the first name, if it has no number
  std::vector<NamePart> _parts;  // kText, kDate (with d for the day) and one kNumber
  std::size_t _fixed = 0;        // length of a name without the number
};

}  // namespace kestro::avi
