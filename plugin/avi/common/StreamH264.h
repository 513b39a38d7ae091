// H.264 video.
#pragma once

#include "common/StreamAnnexB.h"

namespace kestro::plugin::avi {

class StreamH264 : public StreamAnnexB {
 public:
  StreamH264() : StreamAnnexB("h264", "H264", "plugin/avi/common/StreamH264") {}
  static base::PropertyList Properties() { return StreamAnnexB::Properties(); }

 protected:
  // A coded slice (types 1 and 5) or a sequence parameter set.
  bool StartsFrame(unsigned char nal) const override {
    return (nal & 0x1B) == 1 || (nal & 0x1F) == 7;
  }
  // An IDR slice with nal_ref_idc 3, another slice with 0 or 2; the other values are not known.
  bool IsSlice(unsigned char nal) const override { return nal == 0x65 || (nal & 0xBF) == 1; }
  int ParameterSetKind(unsigned char nal) const override {
    int const type = nal & 0x1F;
    return type == 7 || type == 8 ? type - 7 : -1;
  }
  std::initializer_list<ParameterSet> ParameterSets() const override {
    static std::initializer_list<ParameterSet> const sets = {{nullptr, nullptr},
                                                             {nullptr, nullptr}};
    return sets;
  }
};

}  // namespace kestro::plugin::avi
