// The side file of a recording whose headers and index were handed to its application: the head up
// to the first byte of data, and behind it the index of all packets that were written by then.
#pragma once

#include <string>

#include "repair/Head.h"

namespace kestro::tool {

class Image {
 public:
  // Throws Error for what is not such a file.
  explicit Image(std::string const& path);

  Head const& Headers() const { return _head; }
  void ForEachEntry(EntrySink const& sink);
  // Why it does not belong to a recording, whose head is `head` where it could be read; empty when
  // it does.
  std::string Mismatch(RiffReader& file, Head const* head);

 private:
  AviFile _avi;
  Head _head;
  Chunk _index;  // of size 0 where nothing was written yet
};

}  // namespace kestro::tool
