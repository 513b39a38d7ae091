#include "verbs/Details.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

#include "cli/Console.h"
#include "cli/Text.h"

namespace kestro::tool {

// A text of any length and content, for a line of output.
static std::string Brief(std::string const& text) {
  constexpr std::size_t kMost = 100;
  if (text.size() <= kMost) return Shown(text);
  std::size_t end = kMost;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return Shown(text.substr(0, end)) + "...";
}

std::string SoftwareText(avi::Software const& software) {
  std::string text;
  if (auto const& start = software.start)
    text += "  start: " + start->Text() + (start->set ? " (clock set)\n" : " (clock not set)\n");
  if (!software.name.empty()) text += "  software: " + Brief(software.name) + "\n";
  return text;
}

void AddSoftware(Json& json, avi::Software const& software) {
  if (auto const& start = software.start) {
    json["clock"] = start->set ? "set" : "since boot";
    if (start->set)
      json["start"] = avi::UtcText(start->time_ns);
    else
      json["start_ms_since_boot"] = start->time_ns / 1000000;
  }
  if (!software.name.empty()) json["software"] = software.name;
}

static std::int64_t BitRate(avi::AviTrack const& track) {
  if (track.duration_ms <= 0) return 0;
  return static_cast<std::int64_t>(static_cast<double>(track.bytes) * 8000 /
                                   static_cast<double>(track.duration_ms));
}

static std::string Ratio(std::uint64_t width, std::uint64_t height) {
  std::uint64_t const common = std::max<std::uint64_t>(1, std::gcd(width, height));
  return std::to_string(width / common) + ":" + std::to_string(height / common);
}

static std::string SampleAspect(avi::VideoFormat const& format) {
  return Ratio(format.aspectWidth, format.aspectHeight);
}

static std::string DisplayAspect(avi::AviTrack const& track, avi::VideoFormat const& format) {
  return Ratio(std::uint64_t{track.width} * format.aspectWidth,
               std::uint64_t{track.height} * format.aspectHeight);
}

static std::string FormatText(avi::AviTrack const& track, avi::VideoFormat const& format) {
  std::string text = ", " + format.profile;
  if (!format.level.empty()) text += ", level " + format.level;
  text += ", " + std::to_string(format.bits) + " bits";
  if (!format.chroma.empty() && format.chroma != "4:2:0") text += ", " + format.chroma;
  if (format.aspectWidth != format.aspectHeight)
    text += ", samples " + SampleAspect(format) + ", display " + DisplayAspect(track, format);
  return text + (format.interlaced ? ", interlaced" : "");
}

std::string DetailsText(avi::AviTrack const& track, TrackFormat const& found, bool deep) {
  char rate[32];
  std::snprintf(rate, sizeof rate, "    %.1f kbit/s", static_cast<double>(BitRate(track)) / 1000);
  std::string text = rate;
  if (found.format) text += FormatText(track, *found.format);
  if (deep && found.format && found.changes == 0 && track.codec != "mjpeg")
    text += ", parameter sets do not change";
  if (found.changes != 0)
    text += ", parameter sets change " + Quantity(found.changes, "time") + ", first at " +
            Seconds(found.firstChange_ms);
  text += "\n";
  std::string tags;
  if (!track.name.empty()) tags = "    name (strn): " + Brief(track.name);
  if (track.streamData.id != 0)
    tags += (tags.empty() ? "    " : ", ") + std::string("stream data (strd): ") +
            Quantity(static_cast<std::uint64_t>(track.streamData.size), "byte");
  return tags.empty() ? text : text + tags + "\n";
}

// The first bytes of a chunk in hexadecimal digits.
static std::string Preview(avi::RiffReader& reader, avi::Chunk const& chunk) {
  unsigned char bytes[32];
  auto const size = std::clamp<avi::int64>(chunk.end - chunk.Payload(), 0, sizeof bytes);
  unsigned const count = reader.Read(chunk.Payload(), bytes, static_cast<unsigned>(size));
  std::string text;
  for (unsigned i = 0; i < count; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

void AddDetails(Json& json, avi::RiffReader& reader, avi::AviTrack const& track,
                TrackFormat const& found, bool deep) {
  json["bit_rate"] = BitRate(track);
  if (auto const& format = found.format) {
    json["profile"] = format->profile;
    if (!format->level.empty()) json["level"] = format->level;
    json["bit_depth"] = format->bits;
    if (!format->chroma.empty()) json["chroma"] = format->chroma;
    if (format->aspectWidth != 0) {
      json["sample_aspect"] = SampleAspect(*format);
      json["display_aspect"] = DisplayAspect(track, *format);
    }
    json["interlaced"] = format->interlaced;
  }
  if (deep && (track.codec == "h264" || track.codec == "hevc")) {
    json["parameter_set_changes"] = found.changes;
    if (found.changes != 0) json["first_change_ms"] = found.firstChange_ms;
  }
  if (!track.name.empty()) json["name"] = track.name;
  if (track.streamData.id != 0)
    json["stream_data"] = {{"size", track.streamData.size},
                           {"begin", Preview(reader, track.streamData)}};
}

}  // namespace kestro::tool
