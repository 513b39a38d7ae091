#include "output/FrameOrder.h"

#include <algorithm>
#include <new>
#include <numeric>

#include "output/Padded.h"

namespace kestro::tool {

FrameOrder::FrameOrder(AVCodecID codec)
    : _codec(avcodec_alloc_context3(nullptr)), _parser(av_parser_init(codec)) {
  if (!_codec) throw std::bad_alloc();
  _codec->codec_id = codec;
  _codec->codec_type = AVMEDIA_TYPE_VIDEO;
  if (_parser) _parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

void FrameOrder::Add(std::uint8_t const* data, std::size_t size) {
  // What cannot be understood is shown behind the frame that it follows.
  Frame frame{_frames.empty() ? 0 : _frames.back().place, false, 0};
  if (size != 0 && _parser) {
    PacketPtr const padded = Padded(data, size);
    std::uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(_parser.get(), _codec.get(), &out, &outSize, padded->data, padded->size,
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
    frame.key = _parser->key_frame == 1;
    frame.place = _parser->output_picture_number;
    if (_sets.empty() && frame.key) FindParameterSets(*padded);
  }
  _frames.push_back(frame);
}

void FrameOrder::FindParameterSets(AVPacket const& frame) {
  AVBSFContext* made = nullptr;
  AVBitStreamFilter const* const extract = av_bsf_get_by_name("extract_extradata");
  if (extract == nullptr || av_bsf_alloc(extract, &made) < 0) return;
  std::unique_ptr<AVBSFContext, LibavDelete<av_bsf_free>> const filter(made);
  filter->par_in->codec_id = _codec->codec_id;
  filter->par_in->codec_type = AVMEDIA_TYPE_VIDEO;
  PacketPtr const packet(av_packet_clone(&frame));
  if (!packet || av_bsf_init(filter.get()) < 0 ||
      av_bsf_send_packet(filter.get(), packet.get()) < 0 ||
      av_bsf_receive_packet(filter.get(), packet.get()) < 0)
    return;
  std::size_t length = 0;
  std::uint8_t const* const sets =
      av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &length);
  if (sets != nullptr) _sets.assign(sets, sets + length);
}

void FrameOrder::Sort() {
  for (std::size_t begin = 0; begin < _frames.size();) {
    std::size_t end = begin + 1;
    while (end < _frames.size() && !_frames[end].key) ++end;
    SortPeriod(begin, end);
    begin = end;
  }
}

void FrameOrder::SortPeriod(std::size_t begin, std::size_t end) {
  std::vector<std::size_t> order(end - begin);
  std::iota(order.begin(), order.end(), begin);
  std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
    return _frames[a].place < _frames[b].place;
  });
  for (std::size_t i = 0; i < order.size(); ++i) {
    auto const shown = static_cast<std::int64_t>(begin + i);
    _frames[order[i]].shown = shown;
    _delay = std::max(_delay, static_cast<std::int64_t>(order[i]) - shown);
  }
}

}  // namespace kestro::tool
