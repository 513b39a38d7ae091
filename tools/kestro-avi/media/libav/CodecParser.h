// Parses coded frames with libavcodec.
#pragma once

#include "media/FrameParser.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class CodecParser : public FrameParser {
 public:
  // Returns null if libavcodec has no parser for the codec.
  static std::unique_ptr<CodecParser> For(AVCodecID codec);

  Frame Parse(std::uint8_t const* data, std::size_t size) override;
  Bytes ParameterSets(std::uint8_t const* data, std::size_t size) override;
  // The picture size of a key frame; 0 if it is unknown.
  void ReadSize(std::uint8_t const* data, std::size_t size, int& width, int& height);
  // The same, and its profile: FF_PROFILE_UNKNOWN if it is unknown.
  void ReadFormat(std::uint8_t const* data, std::size_t size, int& width, int& height,
                  int& profile);

 private:
  CodecParser(AVCodecID codec, AVCodecParserContext* parser);

  struct ParserDelete {
    void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
  };
  std::unique_ptr<AVCodecParserContext, ParserDelete> _parser;
  CodecPtr _codec;
};

}  // namespace kestro::tool
