// A file for each frame or text, as it is.
#pragma once

#include <string>

#include "cli/Text.h"
#include "media/StreamFile.h"

namespace kestro::tool {

// Named by a pattern (avi/NumberedName.h); they count from 1. Those that are written stay when the
// others cannot be.
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
