// Subtitles of any form that libavcodec knows, as plain text.
#pragma once

#include <cstdint>
#include <string>

#include "media/libav/Libav.h"

namespace kestro::tool {

// The text of an ASS event ("order,layer,style,name,margins...,effect,text") without its overrides,
// one line for each of its lines. `comments`: braces without a backslash are comments as well, as
// in scripts; in what decoders of other forms make they are text.
std::string PlainText(std::string const& event, bool comments);

class SubtitleDecoder {
 public:
  // Whether the stream is made of text, not of pictures, and there is a decoder for it.
  static bool Knows(AVStream const& stream);

  // Throws Error.
  explicit SubtitleDecoder(AVStream const& stream);

  // False for a packet that holds no text.
  bool Decode(AVPacket const& packet, std::int64_t& time_ns, std::string& text);
  unsigned Damaged() const { return _damaged; }

 private:
  AVRational const _timeBase;
  CodecPtr _codec;
  unsigned _damaged = 0;
};

}  // namespace kestro::tool
