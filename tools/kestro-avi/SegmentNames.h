// The names of a recording's files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestro::tool {

// Of "cam-%05d.avi": cam-00001.avi, cam-00002.avi and so on; of "cam.avi": cam.avi, cam-00002.avi.
// Numbers of files that exist are left out, unless they may be overwritten; inputs always are.
class SegmentNames {
 public:
  // `beside`: the ending of the file of slots that each one has next to it, or empty. Throws Error
  // for a name with a % that is not one number, and when the first file cannot be written.
  SegmentNames(std::string const& output, std::string const& beside, bool force,
               std::vector<std::string> const& inputs);

  std::string Next();

 private:
  std::string Name(std::uint64_t number) const;
  std::string Obstacle(std::string const& name) const;
  std::string Obstacle(std::string const& path, char const* advice) const;

  std::string const _output, _beside;
  bool const _force;
  std::vector<std::string> const _inputs;
  bool const _numbered;
  std::uint64_t _number = 0;
};

}  // namespace kestro::tool
