// H.264 video.
#pragma once

#include "common/StreamVideo.h"

namespace kestro::plugin::avi {

class StreamH264 : public StreamAnnexB {
 public:
  StreamH264() : StreamAnnexB("h264", "H264") {}
  static base::PropertyList Properties() { return StreamAnnexB::Properties(); }

 protected:
  // A coded slice (types 1 and 5) or a sequence parameter set.
  bool StartsFrame(unsigned char nal) const override {
    return (nal & 0x1B) == 1 || (nal & 0x1F) == 7;
  }
};

}  // namespace kestro::plugin::avi
