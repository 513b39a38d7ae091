// Headers and index of a recording in a file next to it.
#pragma once

#include <memory>
#include <string>

#include "avi/SlotFile.h"
#include "base/Object.h"

namespace kestro::record {

class Storage;

// "OUT.avi.sync" holds the last image that the muxer of OUT.avi has handed over, in slots: the
// headers, which go to the beginning of OUT.avi and end with the head of the list movi, and the
// index, which goes after the data. Whenever the machine crashes, the image of the last sync, or a
// newer one, is whole. (It may be in "OUT.avi.sync2": see avi::SlotFile.)
class SideFile {
 public:
  SideFile(std::string const& avi, Storage& storage);  // which outlives the object
  ~SideFile();
  SideFile(SideFile const&) = delete;
  SideFile& operator=(SideFile const&) = delete;

  bool Attach(base::Object& muxer);  // which must be closed before this goes; false: refused
  void Remove();                     // when the recording holds its index itself

  std::string const& Path() const { return _slots.Path(); }
  // Why an image could not be stored; empty when all could. The file then holds an older one.
  std::string const& Fault() const { return _fault; }

 private:
  void Note(bool done);

  std::unique_ptr<avi::SlotFile::Folder> const _folder;
  avi::SlotFile _slots;
  unsigned const _id;  // by which the muxer's function, which is one for all, finds it
  std::string _fault;
};

}  // namespace kestro::record
