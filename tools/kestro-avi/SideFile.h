// Headers and index of a recording in a file beside it.
#pragma once

#include <string>

#include "base/Object.h"

namespace kestro::tool {

// "OUT.avi.sync" holds the last image that the muxer of OUT.avi has handed over, byte for byte: the
// headers, which go to the beginning of OUT.avi and end with the head of the list movi, and the
// index, which goes behind the data. Each image is written under another name ("....new"), made
// durable and renamed: whenever the machine crashes, the file is whole.
class SideFile {
 public:
  static constexpr char kEnding[] = ".sync";

  explicit SideFile(std::string const& avi);
  ~SideFile();
  SideFile(SideFile const&) = delete;
  SideFile& operator=(SideFile const&) = delete;

  bool Attach(base::Object& muxer);  // which must be closed before this goes; false: refused
  void Remove();                     // when the recording holds its index itself

  std::string const& Path() const { return _path; }
  // Why an image could not be stored; empty when all could. The file then holds an older one.
  std::string const& Fault() const { return _fault; }

 private:
  void Store(unsigned char const* data, unsigned size);

  std::string const _path;
  unsigned const _id;  // by which the muxer's function, which is one for all, finds it
  std::string _fault;
  bool _stored = false;
};

}  // namespace kestro::tool
