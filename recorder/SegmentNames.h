// The names of a recording's files.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/RecorderOptions.h"

namespace kestro::record {

// Of "cam-%05d.avi": cam-00001.avi, cam-00002.avi and so on; of "cam.avi": cam.avi, cam-00002.avi.
// Numbers of files that exist are left out, unless they may be overwritten.
class SegmentNames {
 public:
  // The options outlive it. Throws Refusal for a name with a % that is not one number, and when the
  // first file cannot be written.
  explicit SegmentNames(RecorderOptions const& options);

  std::string Next();

 private:
  std::string Name(std::uint64_t number) const;
  std::string Obstacle(std::string const& name) const;
  std::string Obstacle(std::string const& path, char const* advice) const;

  RecorderOptions const& _options;
  std::string const& _output;
  bool const _numbered;
  std::uint64_t _number = 0;
};

}  // namespace kestro::record
