#include "verify/HeaderCheck.h"

#include <algorithm>
#include <cmath>

#include "verify/FrameConverter.h"

namespace kestro::tool {

using base::Convert4;

namespace {

struct MainHeader {  // offsets of fields
  static constexpr int64 kFrameTime = 0, kFrames = 16, kStreams = 24, kWidth = 32, kHeight = 36;
  static constexpr int64 kSize = 40;  // up to the last of these fields
};
struct StreamHeader {
  static constexpr int64 kScale = 20, kLength = 32;
  static constexpr int64 kSize = 48;
};

std::string Size(unsigned width, unsigned height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

bool IsVideo(Stream const& stream) { return stream.track->type == "video"; }

class Check {
 public:
  Check(avi::AviFile& avi, std::vector<Stream> const& streams, Findings& findings)
      : _avi(avi), _streams(streams), _findings(findings) {}

  void CheckMain();
  void CheckStream(Stream const& stream);
  void CheckSkew();
  void CheckOrder();

 private:
  void CheckPicture(avi::Chunk const& avih, Stream const& video);
  void CheckPcm(Stream const& stream);
  void CheckLength(Stream const& stream);
  // Whether a test is true for at least one video track.
  template <class Test>
  bool AnyVideo(Test const& test) const {
    return std::any_of(_streams.begin(), _streams.end(),
                       [&](Stream const& stream) { return IsVideo(stream) && test(stream); });
  }

  avi::AviFile& _avi;
  std::vector<Stream> const& _streams;
  Findings& _findings;
};

void Check::CheckMain() {
  avi::Chunk avih, hdrl;
  int64 lists = 0;
  bool parts = false;
  for (avi::Chunk const& chunk : _avi.Tree()) {
    if (chunk.id == Convert4("avih")) avih = chunk;
    if (chunk.type == Convert4("hdrl") && hdrl.id == 0) hdrl = chunk;
    lists += chunk.type == Convert4("strl");
    parts = parts || chunk.type == Convert4("AVIX");
  }
  if (hdrl.id == 0) _findings.Add(found::kMainHeader, _avi.Tree().front().Data(), "hdrl", "none");
  if (avih.end - avih.Payload() < MainHeader::kSize) {
    _findings.Add(found::kMainHeader, avih.id != 0 ? avih.offset : hdrl.Data(), "avih, 56 bytes",
                  avih.id != 0 ? std::to_string(avih.size) + " bytes" : "none");
    return;
  }
  int64 const streams = Field32(_avi.Reader(), avih, MainHeader::kStreams);
  auto const video = std::find_if(_streams.begin(), _streams.end(), IsVideo);
  // The muxer fills in the main header only if there is video.
  if (streams != lists && (streams != 0 || video != _streams.end()))
    _findings.Add(found::kStreamCount, avih.Payload() + MainHeader::kStreams, lists, streams);
  if (video == _streams.end()) return;
  CheckPicture(avih, *video);
  // With several parts, it counts the frames of the first one.
  unsigned const frames = Field32(_avi.Reader(), avih, MainHeader::kFrames);
  if (!parts && !AnyVideo([=](Stream const& stream) {
        return stream.track->length == frames || stream.chunks == frames;
      }))
    _findings.Add(found::kFrameCount, avih.Payload() + MainHeader::kFrames,
                  static_cast<int64>(video->chunks), int64{frames});
}

void Check::CheckPicture(avi::Chunk const& avih, Stream const& video) {
  unsigned const width = Field32(_avi.Reader(), avih, MainHeader::kWidth),
                 height = Field32(_avi.Reader(), avih, MainHeader::kHeight);
  if (!AnyVideo([=](Stream const& stream) {
        return stream.track->width == width && stream.track->height == height;
      }))
    _findings.Add(found::kPictureSize, avih.Payload() + MainHeader::kWidth,
                  Size(video.track->width, video.track->height), Size(width, height));
  // The rate in the stream header is a whole number even if the frame time is not; a frame time of
  // 0 means unknown.
  unsigned const time_us = Field32(_avi.Reader(), avih, MainHeader::kFrameTime);
  auto rate = [](Stream const& stream) {
    return stream.track->scale == 0 ? 0
                                    : static_cast<double>(stream.track->rate) / stream.track->scale;
  };
  if (time_us != 0 && !AnyVideo([=](Stream const& stream) {
        double const other = 1e6 / time_us;
        return rate(stream) == 0 || std::fabs(other - rate(stream)) < std::max(1.0, other / 20);
      }))
    _findings.Add(found::kFrameTime, avih.Payload() + MainHeader::kFrameTime,
                  std::llround(1e6 / rate(video)), int64{time_us});
}

void Check::CheckStream(Stream const& stream) {
  avi::AviTrack const& track = *stream.track;
  bool const audio = track.type == "audio";
  auto chunk = [&](char const* name, avi::Chunk const& chunk, int64 least) {
    if (chunk.end - chunk.Payload() >= least) return true;
    _findings.Add(found::kStreamHeader, chunk.id != 0 ? chunk.offset : stream.list.Data(),
                  name + (", " + std::to_string(least)) + " bytes",
                  chunk.id != 0 ? std::to_string(chunk.size) + " bytes" : "none");
    return false;
  };
  bool const header = chunk("strh", stream.header, StreamHeader::kSize);
  bool const format = chunk("strf", stream.format, audio ? 14 : IsVideo(stream) ? 40 : 0);
  if (!header) return;
  int64 const at = stream.header.Payload();
  if ((audio || IsVideo(stream)) && (track.rate == 0 || track.scale == 0))
    _findings.Add(found::kRate, at + StreamHeader::kScale, "a rate",
                  std::to_string(track.rate) + "/" + std::to_string(track.scale));
  else if (format && track.codec == "pcm" && stream.sampleSize != 0)
    CheckPcm(stream);
  CheckLength(stream);
  FrameConverter const converter(track);
  if (!converter.Needed()) return;
  _findings.Add(found::kPrefixed, stream.format.offset, "start codes", "lengths");
  if (converter.SetsDamaged())
    _findings.Add(found::kSets, stream.format.Payload() + 40, "parameter sets",
                  "a damaged record of " + std::to_string(track.extra.size()) + " bytes");
}

void Check::CheckPcm(Stream const& stream) {
  avi::AviTrack const& track = *stream.track;
  uint64 const frame = uint64{track.channels} * track.bits / 8;
  if (frame != stream.sampleSize || frame * track.sampleRate != track.bytesPerSecond)
    _findings.Add(found::kAudioFormat, stream.format.offset,
                  std::to_string(stream.sampleSize) + " bytes per sample frame, " +
                      std::to_string(track.bytesPerSecond) + " per second",
                  std::to_string(frame) + ", " + std::to_string(frame * track.sampleRate));
  uint64 const bytes = uint64{track.rate} * stream.sampleSize / track.scale;
  if (bytes != track.bytesPerSecond)
    _findings.Add(found::kAudioRate, stream.header.Payload() + StreamHeader::kScale,
                  std::to_string(track.bytesPerSecond) + " bytes per second",
                  std::to_string(bytes));
}

void Check::CheckLength(Stream const& stream) {
  avi::AviTrack const& track = *stream.track;
  uint64 const length = track.length;
  bool right = length == stream.chunks || length == stream.entries;
  uint64 expected = stream.chunks;
  if (track.type == "audio" && stream.sampleSize != 0) {
    // Chunks may end inside a sample, and writers round differently.
    expected = stream.samples;
    right = length + 1 >= stream.samples && length <= stream.bytes / stream.sampleSize + 1;
  }
  bool const known = track.type == "video" || track.type == "audio" || track.type == "text";
  if (known && !right)
    _findings.Add(found::kLength, stream.header.Payload() + StreamHeader::kLength,
                  static_cast<int64>(expected), static_cast<int64>(length));
}

void Check::CheckSkew() {
  int64 const longest = _avi.Duration_ms();
  for (Stream const& stream : _streams) {
    avi::AviTrack const& track = *stream.track;
    int64 const missing = longest - track.duration_ms;
    if ((track.type == "video" || track.type == "audio") && missing > 200 &&
        missing > longest / 200)
      _findings.Add(found::kSkew, stream.header.Payload() + StreamHeader::kLength,
                    std::to_string(longest) + " ms", std::to_string(track.duration_ms) + " ms");
  }
}

// The demuxer does not count text tracks, nor motion JPEG with the handler that most writers use,
// so it mixes up the packets of the tracks after them.
void Check::CheckOrder() {
  auto const counted = [](avi::AviTrack const& track) {
    if (track.codec != "mjpeg") return track.type != "text";
    return track.handler == "mjpg" || track.handler == "jpeg" || track.handler == "jpg";
  };
  auto const plays = [](Stream const& stream) {
    return stream.track->type != "text" && stream.track->codec != "mjpeg";
  };
  for (auto stream = _streams.begin(); stream != _streams.end(); ++stream) {
    auto const later = std::find_if(stream, _streams.end(), plays);
    if (!counted(*stream->track) && later != _streams.end())
      _findings.Add(found::kTrackOrder, stream->list.offset, "the last tracks",
                    stream->track->Kind() + " before " + later->track->Kind());
  }
}

}  // namespace

void CheckHeaders(avi::AviFile& avi, std::vector<Stream> const& streams, Findings& findings) {
  Check check(avi, streams, findings);
  check.CheckMain();
  for (Stream const& stream : streams) check.CheckStream(stream);
  check.CheckSkew();
  check.CheckOrder();
}

}  // namespace kestro::tool
