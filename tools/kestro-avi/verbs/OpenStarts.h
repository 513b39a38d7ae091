// Counts frames that cannot be decoded because a file starts with an open group of pictures.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "media/Session.h"

namespace kestro::tool {

class OpenStarts {
 public:
  void Add(TimedPacket const& packet);  // of the track whose key frames start files
  void AddFile(std::string const& path, std::int64_t time_ns);  // any thread

  // One line for each file with such frames.
  Notices Lines() const;

 private:
  void Forget(std::int64_t time_ns);
  std::optional<Notice> LineAt(std::int64_t time_ns) const;

  mutable std::mutex _mutex;
  std::int64_t _key_ns = 0;                    // the last key frame
  std::map<std::int64_t, unsigned> _frames;    // by key frame: the last ones
  std::map<std::int64_t, std::string> _files;  // by key frame: the last ones
  Notices _lines;                              // about earlier files
};

}  // namespace kestro::tool
