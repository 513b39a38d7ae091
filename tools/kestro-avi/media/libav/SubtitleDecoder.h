// Decodes subtitles to plain text with libavcodec.
#pragma once

#include <cstdint>
#include <string>

#include "media/libav/Cue.h"
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

  // `encoding`: of the text; empty for UTF-8. Throws Error.
  SubtitleDecoder(AVStream const& stream, std::string const& encoding);

  // Returns false for a packet without text.
  bool Decode(AVPacket const& packet, Cue& cue);
  // How many texts could not be decoded, and how many of those are not UTF-8.
  unsigned Damaged() const { return _damaged; }
  unsigned Foreign() const { return _foreign; }

 private:
  AVRational const _timeBase;
  CodecPtr _codec;
  unsigned _damaged = 0, _foreign = 0;
};

}  // namespace kestro::tool
