#include "Track.h"

#include <stdexcept>

namespace kestro::gst {

using record::TrackInfo;

// The caps of text add nothing, and they may come late.
Track::Track(std::string const& name, TrackInfo::Codec theCodec, bool isAwaited)
    : codec(theCodec), awaited(isAwaited) {
  info.name = name;
  info.codec = codec;
  if (info.IsText()) caps = info;
}

TrackInfo Track::Parse(GstCaps* from, base::Fraction const& frameRate) const {
  GstStructure const* const fields = gst_caps_get_structure(from, 0);
  TrackInfo track;
  track.name = info.name;
  track.codec = gst_structure_has_name(fields, "video/x-h265") ? TrackInfo::kHevc
                : gst_structure_has_name(fields, "image/jpeg") ? TrackInfo::kMjpeg
                                                               : codec;
  gst_structure_get(fields, "rate", G_TYPE_INT, &track.rate, "channels", G_TYPE_INT,
                    &track.channels, nullptr);
  if (!track.IsVideo()) return track;
  if (!gst_structure_get_int(fields, "width", &track.width) ||
      !gst_structure_get_int(fields, "height", &track.height))
    throw std::runtime_error(
        "The caps have no picture size. Put h264parse, h265parse or jpegparse before this pad.");
  int num = 0, den = 1;
  gst_structure_get_fraction(fields, "framerate", &num, &den);
  track.frameRate = frameRate.Positive() ? frameRate : base::Fraction(num, den);
  return track;
}

// AVI files store frames in decoding order and no times: they are played evenly, the first key
// frame at its presentation time.
std::optional<std::int64_t> Track::Time_ns(GstSegment const& segment, GstBuffer* buffer) {
  auto const running = [&](GstClockTime time) -> std::optional<std::int64_t> {
    guint64 running = 0;
    if (!GST_CLOCK_TIME_IS_VALID(time) || segment.format != GST_FORMAT_TIME) return std::nullopt;
    int const sign = gst_segment_to_running_time_full(&segment, GST_FORMAT_TIME, time, &running);
    if (sign == 0) return std::nullopt;
    return sign * static_cast<std::int64_t>(running);
  };
  auto const shown = running(GST_BUFFER_PTS(buffer));
  auto const decoded = info.IsVideo() ? running(GST_BUFFER_DTS(buffer)) : std::nullopt;
  if (!decoded) return shown;
  bool const key = !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
  if (!delay_ns && key && shown) delay_ns = *shown - *decoded;
  return *decoded + delay_ns.value_or(0);
}

std::int64_t Track::Duration_ns(std::size_t size) const {
  constexpr std::int64_t kSecond_ns = 1000000000;
  if (info.IsAudio())
    return static_cast<std::int64_t>(size) / info.FrameBytes() * kSecond_ns / info.rate;
  return info.frameRate.Positive() ? kSecond_ns * info.frameRate.den / info.frameRate.num : 0;
}

}  // namespace kestro::gst
