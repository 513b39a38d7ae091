// Includes libavformat and related libraries, and defines owning pointers for their types.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
#include <libavutil/sha.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <string>

namespace kestro::tool {

template <auto release>
struct LibavDelete {
  template <class T>
  void operator()(T* p) const {
    release(&p);
  }
};

using FormatPtr = std::unique_ptr<AVFormatContext, LibavDelete<avformat_close_input>>;
using CodecPtr = std::unique_ptr<AVCodecContext, LibavDelete<avcodec_free_context>>;
using PacketPtr = std::unique_ptr<AVPacket, LibavDelete<av_packet_free>>;
using FramePtr = std::unique_ptr<AVFrame, LibavDelete<av_frame_free>>;
using SwrPtr = std::unique_ptr<SwrContext, LibavDelete<swr_free>>;

inline std::string LibavError(int code) {
  if (code == AVERROR_EXIT) return "interrupted";
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

constexpr AVRational kNanoseconds{1, 1000000000};

}  // namespace kestro::tool
