#include "VideoTag.h"

namespace kestro::plugin::avi {

void AviVideoTags::operator>>(base::ostream& os) const {
  using base::operator>>;
  auto const label = [&](int line, char const* text) -> base::ostream& {
    return os << "plugin/avi/VideoTag/" << line << "/operator>>:\t" << text;
  };
  (_strdbuf >> label(83, "strdbuf : ")) << "\n";
  (_strdsize >> label(84, "strdsize : ")) << "\n";
  (_strnbuf >> label(85, "strnbuf : ")) << "\n";
  (_strnsize >> label(86, "strnsize : ")) << "\n";
  (_isftbuf >> label(88, "isftbuf : ")) << "\n";
  label(89, "isftsize : ") << _isftsize << "\n";
  (_junkbuf >> label(90, "junkbuf : ")) << "\n";
  label(91, "junksize : ") << _junksize << "\n";
  label(92, "idx1_first: ") << static_cast<unsigned>(_idx1First) << "\n";
}

base::PropertyList AviVideoTags::Properties() {
  using Tags = AviVideoTags;
  base::PropertyList list;
  list.Member<Tags>("strdbuf", &Tags::_strdbuf, "\"strd\" payloads by track");
  list.Member<Tags>("strdsize", &Tags::_strdsize, "their sizes in bytes");
  list.Member<Tags>("strnbuf", &Tags::_strnbuf, "\"strn\" payloads by track");
  list.Member<Tags>("strnsize", &Tags::_strnsize, "their sizes in bytes");
  list.Member<Tags>("isftbuf", &Tags::_isftbuf, "payload of \"isft\", the writing software");
  list.Member<Tags>("isftsize", &Tags::_isftsize, "its size in bytes");
  list.Member<Tags>("junkbuf", &Tags::_junkbuf, "payload of the \"JUNK\" filler");
  list.Member<Tags>("junksize", &Tags::_junksize, "its size in bytes");
  list.Member<Tags>("idx1_first", &Tags::_idx1First, "1 puts the index before the data");
  return list;
}

}  // namespace kestro::plugin::avi
