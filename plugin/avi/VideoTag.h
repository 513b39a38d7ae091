// What an application adds to the head of a file.
#pragma once

#include "base/IClass.h"

namespace kestro::plugin::avi {

// Pointers and sizes of extra chunks, and the place of the index. All zero: nothing is added.
//
// The data stays the application's and is used, not copied, until the file is closed; the arrays
// behind "strdbuf", "strdsize", "strnbuf" and "strnsize" have an element for every track. Payloads
// are written as they are, without padding: keep "strd", "strn" and "isft" multiples of 4 bytes and
// "JUNK" even for readers that expect it. Made by the registry ("AviVideoTags"): the muxer reads it
// by property.
class AviVideoTags : public base::Object {
 public:
  AviVideoTags() : Object(nullptr) {}
  void operator>>(base::ostream& os) const override;
  static base::PropertyList Properties();

 private:
  void** _strdbuf = nullptr;
  unsigned* _strdsize = nullptr;
  void** _strnbuf = nullptr;
  unsigned* _strnsize = nullptr;
  unsigned char* _isftbuf = nullptr;
  unsigned _isftsize = 0;
  unsigned char* _junkbuf = nullptr;
  unsigned _junksize = 0;
  unsigned char _idx1First = 0;
};

}  // namespace kestro::plugin::avi
