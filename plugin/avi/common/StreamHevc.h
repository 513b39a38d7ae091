// HEVC video.
#pragma once

#include "common/StreamVideo.h"

namespace kestro::plugin::avi {

class StreamHevc : public StreamAnnexB {
 public:
  StreamHevc() : StreamAnnexB("hevc", "hev1") {}
  static base::PropertyList Properties() { return StreamAnnexB::Properties(); }

 protected:
  // Trailing and sub-layer pictures (0 to 3, 8), IDR (19), CRA (21) or a parameter set (32 to 34).
  bool StartsFrame(unsigned char nal) const override {
    int const type = nal >> 1 & 0x3F;
    return type <= 3 || type == 8 || type == 19 || type == 21 || (type >= 32 && type <= 34);
  }
};

}  // namespace kestro::plugin::avi
