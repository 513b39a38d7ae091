// The file names of a recording.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/RecorderOptions.h"

namespace kestro::record {

// "cam-%05d.avi" gives cam-00001.avi, cam-00002.avi and so on; "cam.avi" gives cam.avi,
// cam-00002.avi and so on. Numbers of existing files are skipped unless they may be overwritten.
class SegmentNames {
 public:
  // `options` must outlive the object. Throws Refusal when the name has a % that is neither a
  // single number nor doubled, or when the first file cannot be written.
  explicit SegmentNames(RecorderOptions const& options);

  std::string Next();
  void GiveBack() { --_number; }  // the last name was not used

 private:
  bool IsSpecial(std::string const& path) const;
  std::string Name(std::uint64_t number) const;
  std::string Obstacle(std::string const& name) const;
  std::string Obstacle(std::string const& path, char const* advice) const;

  RecorderOptions const& _options;
  std::string const& _output;
  bool const _numbered;
  std::uint64_t _number = 0;
};

}  // namespace kestro::record
