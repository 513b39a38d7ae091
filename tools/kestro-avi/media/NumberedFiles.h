// Writes each frame or text to its own file.
#pragma once

#include <string>

#include "media/StreamFile.h"

namespace kestro::tool {

// The files are named by a pattern (avi/NumberedName.h) and numbered from 1. When one cannot be
// written, the earlier ones stay.
class NumberedFiles : public Output {
 public:
  explicit NumberedFiles(std::string const& pattern) : _pattern(pattern) {}
  void Write(std::size_t track, avi::Piece const& piece) override;
  Written Finish() override { return _written; }

 private:
  std::string _pattern;
  Written _written{0, 0};
};

}  // namespace kestro::tool
