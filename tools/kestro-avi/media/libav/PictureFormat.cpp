#include "media/libav/PictureFormat.h"

#include <algorithm>

#include "media/FrameRate.h"
#include "media/Jpeg.h"
#include "media/libav/Padded.h"
#include "media/libav/StreamRate.h"

namespace kestro::tool {

// The start of a frame, which has the parameter sets and the first slice's header.
static constexpr std::size_t kStart = 16384;

std::string PictureFormat::Text(AVCodecID codec) const {
  std::string text = std::to_string(width) + "x" + std::to_string(height);
  if (char const* const name = avcodec_profile_name(codec, profile))
    text += ", " + std::string(name);
  return rate.Positive() ? text + ", " + RateText(rate) + " fps" : text;
}

FormatWatch::FormatWatch(AVCodecID codec, bool rates)
    : _codec(codec),
      _rates(rates),
      _parser(codec == AV_CODEC_ID_MJPEG ? nullptr : CodecParser::For(codec)) {}

PictureFormat FormatWatch::Read(SharedBytes const& key) {
  PictureFormat format;
  if (_parser) {
    _parser->ReadFormat(key.data(), std::min(key.size(), kStart), format.width, format.height,
                        format.profile);
  } else {
    JpegCheck const jpeg = CheckJpeg(key.data(), key.size());
    format.width = jpeg.width;
    format.height = jpeg.height;
  }
  return format;
}

base::Fraction FormatWatch::ReadRate(SharedBytes const& key) const {
  std::unique_ptr<AVCodecParameters, LibavDelete<avcodec_parameters_free>> const codec(
      avcodec_parameters_alloc());
  codec->codec_type = AVMEDIA_TYPE_VIDEO;
  codec->codec_id = _codec;
  base::Fraction const rate = UsualRate(StreamRate(*codec, *Padded(key.data(), key.size())));
  bool const usable =
      rate.Positive() && rate.num >= rate.den && rate.num / rate.den <= kHighestRate;
  return usable ? rate : base::Fraction();
}

bool FormatWatch::Differs(SharedBytes const& key) {
  _after = Read(key);
  if (_after.width <= 0 || _after.height <= 0) return false;
  Bytes sets = _parser ? _parser->ParameterSets(key.data(), std::min(key.size(), kStart)) : Bytes();
  bool const other = _rates && !_sets.empty() && !sets.empty() && sets != _sets;
  if (_before.width == 0) _before = _after;
  bool differs = _after.width != _before.width || _after.height != _before.height ||
                 _after.profile != _before.profile;
  if (other) {
    _before.rate = ReadRate(_key);
    _after.rate = ReadRate(key);
    differs |=
        _before.rate.Positive() && _after.rate.Positive() && !SameRate(_before.rate, _after.rate);
  }
  if (differs || sets.empty() || sets == _sets) return differs;
  _sets = std::move(sets);
  _key = key;
  return false;
}

}  // namespace kestro::tool
