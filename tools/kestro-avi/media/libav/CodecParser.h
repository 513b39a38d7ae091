// Coded frames, looked at by libavcodec.
#pragma once

#include "media/FrameParser.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class CodecParser : public FrameParser {
 public:
  // Null for a codec that libavcodec has no parser for.
  static std::unique_ptr<CodecParser> For(AVCodecID codec);

  Frame Parse(std::uint8_t const* data, std::size_t size) override;
  Bytes ParameterSets(std::uint8_t const* data, std::size_t size) override;

 private:
  CodecParser(AVCodecID codec, AVCodecParserContext* parser);

  struct ParserDelete {
    void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
  };
  std::unique_ptr<AVCodecParserContext, ParserDelete> _parser;
  CodecPtr _codec;
};

}  // namespace kestro::tool
