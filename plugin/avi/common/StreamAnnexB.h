// Video in Annex B form.
#pragma once

#include <initializer_list>
#include <vector>

#include "common/IChunkStream.h"

namespace kestro::plugin::avi {

// Access units whose NAL units follow start codes 00 00 00 01. A codec says what its NAL units are.
//
// Writing: each frame is one chunk, from the first parameter set or slice on; what lies in front of
// that is not stored.
//
// Reading: the media is rebuilt from the headers, and gets the parameter sets from the first key
// frame. What precedes the first slice of a frame is overwritten with zeros in the packet.
class StreamAnnexB : public IChunkStream {
 public:
  bool muxConfig(Object* vidtag) override;
  int MuxOffset(Packet const& packet) override;

  bool demuxConfig(Object* tags) override;
  bool SetDurPerFrame() override;
  Packet* GetPacket(IO& io, int64 length) override;
  int64 GetKeyFrameGap() override;
  bool SetKeyFrameGap() override;

  // Hands the parameter sets of a key packet to the media, unless it has them. False for a packet
  // that is not key, or that the media refuses.
  virtual bool SetMediaInfo(Packet const& packet);
  // The position of the first slice, 0 for none.
  virtual int DemuxOffset(Packet const& packet);

 protected:
  // The codec's name, the four-character code of the headers, and the path that error lines name.
  StreamAnnexB(char const* name, char const* handler, char const* source)
      : IChunkStream(name), _handler(handler), _source(source) {}
  static base::PropertyList Properties();  // "frameRate"

  // A kind of parameter set, and the media's keys for a pointer to one and its length; null where
  // the media has none.
  struct ParameterSet {
    char const* data;
    char const* size;
  };

  // Whether a frame is stored from the NAL unit with this first byte on.
  virtual bool StartsFrame(unsigned char nal) const = 0;
  // Whether it is a slice that a frame may begin with.
  virtual bool IsSlice(unsigned char nal) const = 0;
  // Which of the kinds below it is, -1 for none.
  virtual int ParameterSetKind(unsigned char nal) const = 0;
  virtual std::initializer_list<ParameterSet> ParameterSets() const = 0;

 private:
  char const* const _handler;
  char const* const _source;
  Fraction _frameRate;
  std::vector<unsigned char> _parameterSets;  // with their start codes, in stream order
};

}  // namespace kestro::plugin::avi
