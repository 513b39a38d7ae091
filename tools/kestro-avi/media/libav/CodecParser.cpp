#include "media/libav/CodecParser.h"

#include <new>

#include "media/libav/Padded.h"

namespace kestro::tool {

std::unique_ptr<CodecParser> CodecParser::For(AVCodecID codec) {
  AVCodecParserContext* const parser = av_parser_init(codec);
  if (parser == nullptr) return nullptr;
  return std::unique_ptr<CodecParser>(new CodecParser(codec, parser));
}

CodecParser::CodecParser(AVCodecID codec, AVCodecParserContext* parser)
    : _parser(parser), _codec(avcodec_alloc_context3(nullptr)) {
  if (!_codec) throw std::bad_alloc();
  _codec->codec_id = codec;
  _codec->codec_type = AVMEDIA_TYPE_VIDEO;
  _parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

FrameParser::Frame CodecParser::Parse(std::uint8_t const* data, std::size_t size) {
  PacketPtr const padded = Padded(data, size);
  std::uint8_t* out = nullptr;
  int outSize = 0;
  av_parser_parse2(_parser.get(), _codec.get(), &out, &outSize, padded->data, padded->size,
                   AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
  return {_parser->output_picture_number, _parser->key_frame == 1};
}

void CodecParser::ReadSize(std::uint8_t const* data, std::size_t size, int& width, int& height) {
  Parse(data, size);
  width = _parser->width;
  height = _parser->height;
}

void CodecParser::ReadFormat(std::uint8_t const* data, std::size_t size, int& width, int& height,
                             int& profile) {
  ReadSize(data, size, width, height);
  profile = _codec->profile;
}

Bytes CodecParser::ParameterSets(std::uint8_t const* data, std::size_t size) {
  AVBSFContext* made = nullptr;
  AVBitStreamFilter const* const extract = av_bsf_get_by_name("extract_extradata");
  if (extract == nullptr || av_bsf_alloc(extract, &made) < 0) return {};
  std::unique_ptr<AVBSFContext, LibavDelete<av_bsf_free>> const filter(made);
  filter->par_in->codec_id = _codec->codec_id;
  filter->par_in->codec_type = AVMEDIA_TYPE_VIDEO;
  PacketPtr const packet = Padded(data, size);
  if (av_bsf_init(filter.get()) < 0 || av_bsf_send_packet(filter.get(), packet.get()) < 0 ||
      av_bsf_receive_packet(filter.get(), packet.get()) < 0)
    return {};
  std::size_t length = 0;
  std::uint8_t const* const sets =
      av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &length);
  return sets == nullptr ? Bytes() : Bytes(sets, sets + length);
}

}  // namespace kestro::tool
