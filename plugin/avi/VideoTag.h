// Extra header chunks that an application supplies.
#pragma once

#include "base/IClass.h"

namespace kestro::plugin::avi {

// Pointers to and sizes of extra chunks, and the place of the index. With all of them zero, nothing
// is added.
//
// The data belongs to the application and is used, not copied, until the file is closed. The arrays
// that "strdbuf", "strdsize", "strnbuf" and "strnsize" point to have an element for every track.
// Payloads are written without padding: for readers that expect it, make "strd", "strn" and "isft"
// multiples of 4 bytes long and "JUNK" even. Make it through the registry as "AviVideoTags"; the
// muxer reads it by property.
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
