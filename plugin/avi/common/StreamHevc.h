// HEVC video.
#pragma once

#include "common/StreamAnnexB.h"

namespace kestro::plugin::avi {

class StreamHevc : public StreamAnnexB {
 public:
  StreamHevc()
      : StreamAnnexB(stream::NalCodec::kHevc, "hevc", "hev1", "plugin/avi/common/StreamHevc") {}
  static base::PropertyList Properties() { return StreamAnnexB::Properties(); }

 protected:
  std::initializer_list<ParameterSet> ParameterSets() const override {
    static std::initializer_list<ParameterSet> const sets = {
        {"vps", "ivps"}, {"sps", "isps"}, {"pps", "ipps"}};
    return sets;
  }
};

}  // namespace kestro::plugin::avi
