// Reads the side file of a recording. Its image is the file header up to the first byte of data,
// followed by the index of all packets written so far. The image is stored in slots (SlotFile.h)
// or, by older recorders, is the file itself.
#pragma once

#include <string>
#include <vector>

#include "repair/Head.h"

namespace kestro::tool {

class Image {
 public:
  // Throws Error when it is not such a file.
  explicit Image(std::string const& path);
  // The side file of a recording, of two the one with the newer image; empty if there is none.
  static std::string Find(std::string const& recording);

  Head const& Headers() const { return _head; }
  std::vector<unsigned char> Bytes();  // the whole image; throws Error
  void ForEachEntry(avi::EntrySink const& sink);
  // Why it does not belong to a recording; empty if it does. `head`: the header of the recording,
  // null if it could not be read.
  std::string Mismatch(avi::RiffReader& file, Head const* head);

 private:
  avi::AviFile _avi;
  Head _head;
  avi::Chunk _index;  // size 0 if nothing was written yet
};

}  // namespace kestro::tool
