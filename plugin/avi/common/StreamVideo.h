// What the video streams share.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// A stream header and a video format under a new stream list, which is the caller's. `rate` is in
// whole frames a second, width and height in pixels of the stored frame. Null for a rate that the
// header cannot hold.
IList* NewVideoStrl(char const* handler, int64 rate, int width, int height);

// Video in Annex B form: access units whose NAL units follow start codes 00 00 00 01. Each frame is
// one chunk, from the first parameter set or slice on; what lies in front of that is not stored. A
// codec says which NAL units these are.
class StreamAnnexB : public IStream {
 public:
  bool muxConfig(Object* vidtag) override;
  int MuxOffset(Packet const& packet) override;

 protected:
  StreamAnnexB(char const* name, char const* handler) : IStream(name), _handler(handler) {}
  static base::PropertyList Properties();  // "frameRate"

  // Whether a frame is stored from the NAL unit with this first byte on.
  virtual bool StartsFrame(unsigned char nal) const = 0;

 private:
  char const* const _handler;
  Fraction _frameRate;
};

}  // namespace kestro::plugin::avi
