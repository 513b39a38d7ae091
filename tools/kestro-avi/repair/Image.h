// The side file of a recording whose headers and index were handed to its application: the head up
// to the first byte of data, followed by the index of all packets that were written by then. It
// holds this image in slots (SlotFile.h), or, from an older recorder, is the image.
#pragma once

#include <string>

#include "repair/Head.h"

namespace kestro::tool {

class Image {
 public:
  // Throws Error for what is not such a file.
  explicit Image(std::string const& path);
  // The side file next to a recording: of two, the one with the newer image. Empty: there is none.
  static std::string Find(std::string const& recording);

  Head const& Headers() const { return _head; }
  void ForEachEntry(avi::EntrySink const& sink);
  // Why it does not belong to a recording, whose head is `head` where it could be read; empty when
  // it does.
  std::string Mismatch(avi::RiffReader& file, Head const* head);

 private:
  avi::AviFile _avi;
  Head _head;
  avi::Chunk _index;  // of size 0 where nothing was written yet
};

}  // namespace kestro::tool
