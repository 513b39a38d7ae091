// Writes data to a file as it is.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "base/File.h"
#include "cli/NewFile.h"
#include "media/Output.h"

namespace kestro::tool {

// Used directly for elementary streams of video. The path "-" is standard output.
class StreamFile : public Output {
 public:
  explicit StreamFile(std::string const& path);
  void Write(std::size_t track, avi::Piece const& piece) override;
  Written Finish() override;

 protected:
  bool Seekable() const { return _new != nullptr; }
  void Store(void const* data, std::size_t size);
  void Rewind();

 private:
  [[noreturn]] void Fail() const;

  std::unique_ptr<NewFile> _new;  // null for standard output
  std::unique_ptr<base::FileIO> _file;
  std::uint64_t _stored = 0;
};

}  // namespace kestro::tool
