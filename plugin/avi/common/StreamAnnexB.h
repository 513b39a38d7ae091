// Video in Annex B form.
#pragma once

#include <initializer_list>
#include <vector>

#include "common/IChunkStream.h"
#include "stream/NalUnits.h"

namespace kestro::plugin::avi {

// Access units whose NAL units follow start codes 00 00 00 01; stream/NalUnits.h describes them.
//
// Writing: each frame becomes one chunk, from its first parameter set or slice on; anything before
// that is not stored.
//
// Reading: the media is rebuilt from the headers, with the parameter sets of the first key frame.
// In packets, everything before the first slice of a frame is overwritten with zeros.
class StreamAnnexB : public IChunkStream {
 public:
  bool muxConfig(Object* vidtag) override;
  int MuxOffset(Packet const& packet) override;

  bool demuxConfig(Object* tags) override;
  bool SetDurPerFrame() override;
  Packet* GetPacket(IO& io, int64 length) override;
  int64 GetKeyFrameGap() override;
  bool SetKeyFrameGap() override;

  // Passes the parameter sets of a key packet to the media, unless it has them. False if the packet
  // is not key, or if the media refuses them.
  virtual bool SetMediaInfo(Packet const& packet);
  // The position of the first slice; 0 if there is none.
  virtual int DemuxOffset(Packet const& packet);

 protected:
  // The codec and its name, the four-character code in the headers, and the path that error lines
  // show.
  StreamAnnexB(stream::NalCodec codec, char const* name, char const* handler, char const* source)
      : IChunkStream(name), _codec(codec), _handler(handler), _source(source) {}
  static base::PropertyList Properties();  // "frameRate"

  // The media's keys for a pointer to a parameter set and its length; null where the media has
  // none.
  struct ParameterSet {
    char const* data;
    char const* size;
  };

  // One for each kind of parameter set.
  virtual std::initializer_list<ParameterSet> ParameterSets() const = 0;

 private:
  using NalUnits = stream::NalUnits<stream::LongCodes>;
  NalUnits UnitsOf(Packet const& packet) const {
    return {_codec, packet.Data(), static_cast<std::size_t>(packet.Size())};
  }

  stream::NalCodec const _codec;
  char const* const _handler;
  char const* const _source;
  Fraction _frameRate;
  std::vector<unsigned char> _parameterSets;  // with their start codes, in stream order
};

}  // namespace kestro::plugin::avi
