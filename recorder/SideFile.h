// The side file: headers and index of a recording in a separate file.
#pragma once

#include <memory>
#include <string>

#include "avi/SlotFile.h"
#include "base/Object.h"

namespace kestro::record {

class Storage;

// "OUT.avi.sync" stores the last image from the muxer of OUT.avi in slots: the headers, which
// belong at the start of OUT.avi and end with the header of movi, and the index, which belongs
// after the data. After a crash at any time, the image of the last sync or a newer one is intact,
// in this file or in "OUT.avi.sync2" (see avi::SlotFile).
class SideFile {
 public:
  SideFile(std::string const& avi, Storage& storage);  // `storage` must outlive the object
  ~SideFile();
  SideFile(SideFile const&) = delete;
  SideFile& operator=(SideFile const&) = delete;

  // Makes the muxer store its images here. Close the muxer before this object is destroyed. False
  // when the muxer refuses.
  bool Attach(base::Object& muxer);
  void Remove();  // once the recording has its own index

  std::string const& Path() const { return _slots.Path(); }
  // Why an image could not be stored, so that the file holds an older one; empty if all were
  // stored.
  std::string const& Fault() const { return _fault; }

 private:
  void NoteFault(bool stored);

  std::unique_ptr<avi::SlotFile::Folder> const _folder;
  avi::SlotFile _slots;
  unsigned const _id;  // identifies this object to the callback, a plain function
  std::string _fault;
};

}  // namespace kestro::record
