// The file names of a recording.
#pragma once

#include <cstdint>
#include <string>

#include "avi/NamePattern.h"
#include "recorder/RecorderOptions.h"

namespace kestro::record {

// Gives files their names and numbers, see RecorderOptions::path. Where numbers go on from the
// highest in the folder, their order is that of recording. Existing files may be overwritten if the
// options say so; numbers then begin with 1.
class SegmentNames {
 public:
  // `options` must outlive the object. Throws Refusal when the name has a % without a meaning, or
  // when the first file cannot be written.
  explicit SegmentNames(RecorderOptions const& options);

  bool Dated() const { return _pattern.Dated(); }
  // The name of the next file, which starts at a time since 1970-01-01 UTC.
  std::string Next(std::int64_t start_ns);
  void GiveBack() { --_number; }  // the last name was not used
  // The name of the same file if it starts at another time.
  std::string Current(std::int64_t start_ns);

 private:
  void CheckFirst() const;
  std::uint64_t Highest() const;
  bool IsSpecial(std::string const& path) const;
  std::string Name(std::uint64_t number, std::int64_t start_ns) const;
  std::string Obstacle(std::string const& name) const;
  std::string Obstacle(std::string const& path, char const* advice) const;

  RecorderOptions const& _options;
  std::string const _folder;  // with its slash, or empty
  avi::NamePattern const _pattern;
  bool const _goesOn;  // from the highest number
  std::uint64_t _number = 0;
};

// The part of a path before the name, with its slash; empty without one.
std::string FolderOf(std::string const& path);

}  // namespace kestro::record
