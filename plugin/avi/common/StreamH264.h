// H.264 video.
#pragma once

#include "common/StreamAnnexB.h"

namespace kestro::plugin::avi {

class StreamH264 : public StreamAnnexB {
 public:
  StreamH264()
      : StreamAnnexB(stream::NalCodec::kH264, "h264", "H264", "plugin/avi/common/StreamH264") {}
  static base::PropertyList Properties() { return StreamAnnexB::Properties(); }

 protected:
  std::initializer_list<ParameterSet> ParameterSets() const override {
    static std::initializer_list<ParameterSet> const sets = {{nullptr, nullptr},
                                                             {nullptr, nullptr}};
    return sets;
  }
};

}  // namespace kestro::plugin::avi
