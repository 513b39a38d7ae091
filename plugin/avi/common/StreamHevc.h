// HEVC video.
#pragma once

#include "common/StreamAnnexB.h"

namespace kestro::plugin::avi {

class StreamHevc : public StreamAnnexB {
 public:
  StreamHevc() : StreamAnnexB("hevc", "hev1", "plugin/avi/common/StreamHevc") {}
  static base::PropertyList Properties() { return StreamAnnexB::Properties(); }

 protected:
  // Trailing and sub-layer pictures (0 to 3, 8), IDR (19), CRA (21) or a parameter set (32 to 34).
  bool StartsFrame(unsigned char nal) const override {
    int const type = nal >> 1 & 0x3F;
    return type <= 3 || type == 8 || type == 19 || type == 21 || (type >= 32 && type <= 34);
  }
  // An IDR picture with leading ones, or a trailing or sub-layer picture, of layer 0.
  bool IsSlice(unsigned char nal) const override {
    return nal == 0x26 || nal == 0x00 || nal == 0x02 || nal == 0x04;
  }
  int ParameterSetKind(unsigned char nal) const override {
    int const type = nal >> 1 & 0x3F;
    return type >= 32 && type <= 34 ? type - 32 : -1;
  }
  std::initializer_list<ParameterSet> ParameterSets() const override {
    static std::initializer_list<ParameterSet> const sets = {
        {"vps", "ivps"}, {"sps", "isps"}, {"pps", "ipps"}};
    return sets;
  }
};

}  // namespace kestro::plugin::avi
