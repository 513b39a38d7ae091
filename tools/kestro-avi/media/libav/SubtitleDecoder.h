// Decodes subtitles to plain text with libavcodec.
#pragma once

#include <cstdint>
#include <string>

#include "media/libav/Libav.h"

namespace kestro::tool {

// The text of an ASS event ("order,layer,style,name,margins...,effect,text") without its overrides,
// with the same lines. `comments`: braces without a backslash are comments, as in scripts; decoders
// of other formats write them as text.
std::string PlainText(std::string const& event, bool comments);

class SubtitleDecoder {
 public:
  // Whether the stream is text, not pictures, and there is a decoder for it.
  static bool Supports(AVStream const& stream);

  // Throws Error.
  explicit SubtitleDecoder(AVStream const& stream);

  // Returns false for a packet without text.
  bool Decode(AVPacket const& packet, std::int64_t& time_ns, std::string& text);
  unsigned Damaged() const { return _damaged; }

 private:
  AVRational const _timeBase;
  CodecPtr _codec;
  unsigned _damaged = 0;
};

}  // namespace kestro::tool
