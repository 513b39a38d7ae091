// Writes data to a file as it is.
#pragma once

#include <cstddef>
#include <string>

#include "base/File.h"
#include "cli/NewFile.h"
#include "media/Output.h"

namespace kestro::tool {

// Used directly for elementary streams of video.
class StreamFile : public Output {
 public:
  explicit StreamFile(std::string const& path);
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Finish() override;

 protected:
  void Store(void const* data, std::size_t size);

  NewFile _new;
  base::FileIO _file;
};

}  // namespace kestro::tool
