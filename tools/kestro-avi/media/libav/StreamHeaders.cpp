#include "media/libav/StreamHeaders.h"

#include <algorithm>

#include "avi/VideoFormat.h"
#include "media/AnnexB.h"

namespace kestro::tool {

// Reads how many frames are reordered.
static bool ReadVideo(AVStream& stream) {
  AVCodecParameters& codec = *stream.codecpar;
  if (codec.codec_id != AV_CODEC_ID_H264 || codec.extradata_size <= 0) return false;
  if (stream.avg_frame_rate.num <= 0 || stream.r_frame_rate.num <= 0) return false;
  AnnexB converter(stream::NalCodec::kH264);
  Bytes sets;
  if (!converter.Configure(codec.extradata, static_cast<std::size_t>(codec.extradata_size)))
    return false;
  converter.Convert(nullptr, 0, true, sets);
  auto const format = avi::VideoFormat::Read("h264", sets.data(), sets.size());
  if (!format || !format->reordering || static_cast<int>(format->width) != codec.width ||
      static_cast<int>(format->height) != codec.height)
    return false;
  codec.video_delay = static_cast<int>(*format->reordering);
  return true;
}

// PCM needs nothing else; other headers may give half the rate.
static bool IsKnownAudio(AVCodecParameters const& codec) {
  return codec.codec_id >= AV_CODEC_ID_FIRST_AUDIO && codec.codec_id < AV_CODEC_ID_ADPCM_IMA_QT &&
         codec.sample_rate > 0 && codec.ch_layout.nb_channels > 0;
}

bool HeadersSuffice(AVFormatContext& format) {
  if ((format.ctx_flags & AVFMTCTX_NOHEADER) != 0 || format.duration <= 0) return false;
  bool const all =
      std::all_of(format.streams, format.streams + format.nb_streams, [](AVStream* stream) {
        AVMediaType const type = stream->codecpar->codec_type;
        return type == AVMEDIA_TYPE_VIDEO
                   ? ReadVideo(*stream)
                   : type == AVMEDIA_TYPE_AUDIO && IsKnownAudio(*stream->codecpar);
      });
  if (all) format.duration_estimation_method = AVFMT_DURATION_FROM_STREAM;
  return all && format.nb_streams != 0;
}

}  // namespace kestro::tool
