// Writes each frame or text to its own file.
#pragma once

#include <string>

#include "cli/Text.h"
#include "media/StreamFile.h"

namespace kestro::tool {

// The files are named by a pattern (avi/NumberedName.h) and numbered from 1. When one cannot be
// written, the earlier ones stay.
class NumberedFiles : public Output {
 public:
  explicit NumberedFiles(std::string const& pattern) : _pattern(pattern) {}
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Finish() override { return Quantity(_written, "file"); }

 private:
  std::string _pattern;
  std::uint64_t _written = 0;
};

}  // namespace kestro::tool
