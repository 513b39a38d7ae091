#include "media/libav/DecodeCheck.h"

#include <algorithm>

#include "cli/Errors.h"
#include "media/libav/Padded.h"

namespace kestro::tool {

DecodeCheck::DecodeCheck(AVCodecID id) : _frame(av_frame_alloc()) {
  AVCodec const* const codec = avcodec_find_decoder(id);
  _codec.reset(avcodec_alloc_context3(codec));
  if (codec == nullptr || !_codec)
    throw Error(kUnusable, std::string("no decoder for ") + avcodec_get_name(id));
  _codec->thread_count = 1;  // errors belong to the frame that is passed
  _codec->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
  _codec->pkt_timebase = {1, 1};
  if (int const failed = avcodec_open2(_codec.get(), codec, nullptr); failed < 0)
    throw Error(kUnusable, std::string("the decoder ") + codec->name + ": " + LibavError(failed));
}

std::vector<std::uint64_t> DecodeCheck::Check(std::uint8_t const* data, std::size_t size) {
  std::uint64_t const number = _number++;
  std::vector<std::uint64_t> damaged;
  if (size == 0) return damaged;
  PacketPtr const packet = Padded(data, size);
  packet->pts = packet->dts = static_cast<std::int64_t>(number);
  if (avcodec_send_packet(_codec.get(), packet.get()) < 0) Add(number, damaged);
  Receive(damaged);
  return damaged;
}

std::vector<std::uint64_t> DecodeCheck::Finish() {
  std::vector<std::uint64_t> damaged;
  avcodec_send_packet(_codec.get(), nullptr);
  Receive(damaged);
  return damaged;
}

void DecodeCheck::Add(std::uint64_t number, std::vector<std::uint64_t>& damaged) {
  if (_reported.insert(number).second) damaged.push_back(number);
}

void DecodeCheck::Receive(std::vector<std::uint64_t>& damaged) {
  for (;;) {
    int const got = avcodec_receive_frame(_codec.get(), _frame.get());
    if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) return;
    bool const bad =
        got < 0 || _frame->decode_error_flags != 0 || (_frame->flags & AV_FRAME_FLAG_CORRUPT) != 0;
    bool const named = got >= 0 && _frame->pts != AV_NOPTS_VALUE;
    std::uint64_t const number =
        named ? static_cast<std::uint64_t>(_frame->pts) : std::max<std::uint64_t>(1, _number) - 1;
    if (bad) Add(number, damaged);
    if (got < 0) return;
    av_frame_unref(_frame.get());
  }
}

}  // namespace kestro::tool
