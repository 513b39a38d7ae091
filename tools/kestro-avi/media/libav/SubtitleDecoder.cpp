#include "media/libav/SubtitleDecoder.h"

#include "cli/Errors.h"
#include "media/TextEncoding.h"

namespace kestro::tool {

// The offset of the text in an event.
static std::size_t TextStart(std::string const& event) {
  std::size_t at = 0;
  for (int field = 0; field < 8; ++field) {
    std::size_t const comma = event.find(',', at);
    if (comma == event.npos) return event.size();
    at = comma + 1;
  }
  return at;
}

std::string PlainText(std::string const& event, bool comments) {
  static std::string const kJoiner = "\xE2\x81\xA0";  // decoders add it after a literal backslash
  std::string text;
  for (std::size_t i = TextStart(event); i < event.size(); ++i) {
    char const next = i + 1 < event.size() ? event[i + 1] : '\0';
    if (event[i] == '{' && (comments || next == '\\' || next == '}')) {
      std::size_t const end = event.find('}', i);
      if (end != event.npos) {
        i = end;
        continue;
      }
    }
    if (event[i] == '\\' && (next == 'N' || next == 'n' || next == 'h')) {
      text += next == 'h' ? ' ' : '\n';
      ++i;
    } else if (event[i] == '\\' && (next == '{' || next == '}')) {
      text += next;
      ++i;
    } else if (event[i] == '\\' && event.compare(i + 1, kJoiner.size(), kJoiner) == 0) {
      text += '\\';
      i += kJoiner.size();
    } else if (event[i] != '\r') {
      text += event[i];
    }
  }
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

bool SubtitleDecoder::Supports(AVStream const& stream) {
  AVCodecID const id = stream.codecpar->codec_id;
  AVCodecDescriptor const* known = avcodec_descriptor_get(id);
  return known != nullptr && (known->props & AV_CODEC_PROP_TEXT_SUB) != 0 &&
         avcodec_find_decoder(id) != nullptr;
}

SubtitleDecoder::SubtitleDecoder(AVStream const& stream, std::string const& encoding)
    : _timeBase(stream.time_base) {
  AVCodec const* codec = avcodec_find_decoder(stream.codecpar->codec_id);
  _codec.reset(avcodec_alloc_context3(codec));
  int failed = avcodec_parameters_to_context(_codec.get(), stream.codecpar);
  _codec->pkt_timebase = stream.time_base;
  if (failed >= 0 && !encoding.empty())
    failed = av_opt_set(_codec.get(), "sub_charenc", encoding.c_str(), 0);
  if (failed >= 0) failed = avcodec_open2(_codec.get(), codec, nullptr);
  if (failed < 0)
    throw Error(kUnusable, std::string("the decoder ") + codec->name + ": " + LibavError(failed));
}

bool SubtitleDecoder::Decode(AVPacket const& packet, Cue& cue) {
  if (packet.pts == AV_NOPTS_VALUE || packet.size <= 0) return false;
  cue.time_ns = av_rescale_q(packet.pts, _timeBase, kNanoseconds);
  if (packet.duration > 0)
    cue.end_ns = av_rescale_q(packet.pts + packet.duration, _timeBase, kNanoseconds);
  AVSubtitle subtitle{};
  int got = 0;
  auto* in = const_cast<AVPacket*>(&packet);  // not const in older libraries
  if (avcodec_decode_subtitle2(_codec.get(), &subtitle, &got, in) < 0) {
    ++_damaged;
    auto const* bytes = reinterpret_cast<char const*>(packet.data);
    if (!IsUtf8({bytes, bytes + packet.size})) ++_foreign;
  }
  std::string& text = cue.text;
  text.clear();
  for (unsigned i = 0; got != 0 && i < subtitle.num_rects; ++i) {
    AVSubtitleRect const& rect = *subtitle.rects[i];
    if (rect.ass == nullptr) continue;
    if (!text.empty()) text += '\n';
    text += PlainText(rect.ass, _codec->codec_id == AV_CODEC_ID_ASS);
  }
  avsubtitle_free(&subtitle);
  return !text.empty();
}

}  // namespace kestro::tool
