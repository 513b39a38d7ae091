#include "verbs/TrackText.h"

#include <cstdio>

#include "cli/Text.h"
#include "verify/FrameConverter.h"

namespace kestro::tool {

bool HasFrameRate(avi::AviTrack const& track) {
  return track.type == "video" && track.scale != 0 && track.rate != 0;
}

std::string TrackText(avi::AviFile const& avi, std::size_t number) {
  avi::AviTrack const& track = avi.Tracks()[number];
  std::string text = "  track " + std::to_string(number) + ": " + track.Kind();
  if (!track.handler.empty()) text += " (" + track.handler + ")";
  if (track.type == "video")
    text += ", " + std::to_string(track.width) + "x" + std::to_string(track.height);
  if (HasFrameRate(track)) {
    char rate[32];
    std::snprintf(rate, sizeof rate, ", %.6g fps", static_cast<double>(track.rate) / track.scale);
    text += rate;
  }
  if (FrameConverter(track).Needed()) text += ", length-prefixed";
  if (track.type == "audio")
    text += ", " + std::to_string(track.sampleRate) + " Hz, " +
            Quantity(track.channels, "channel") + ", " + std::to_string(track.bits) + " bits";
  text += "\n    " + Quantity(track.chunks, "chunk");
  if (track.keysKnown)
    text += " (" + std::to_string(track.keyChunks) + " key)";
  else if (avi.HasIndex() && !avi.Indexed())
    text += " (" + std::to_string(track.indexedChunks) + " in the index)";
  return text + ", " + Quantity(track.bytes, "byte") + ", " + Seconds(track.duration_ms) + "\n";
}

Json TrackJson(avi::AviFile const& avi, std::size_t number) {
  avi::AviTrack const& track = avi.Tracks()[number];
  Json json{{"number", number}, {"type", track.type}, {"handler", track.handler}};
  if (!track.codec.empty()) json["codec"] = track.codec;
  if (FrameConverter(track).Needed()) json["form"] = "length-prefixed";
  if (track.type == "video") {
    json["width"] = track.width;
    json["height"] = track.height;
  }
  if (HasFrameRate(track)) {
    if (track.rate % track.scale == 0)
      json["frame_rate"] = track.rate / track.scale;
    else
      json["frame_rate"] = static_cast<double>(track.rate) / track.scale;
  }
  if (track.type == "audio") {
    json["rate"] = track.sampleRate;
    json["channels"] = track.channels;
    json["bits"] = track.bits;
  }
  json["chunks"] = track.chunks;
  if (avi.HasIndex() && !avi.Indexed()) json["indexed_chunks"] = track.indexedChunks;
  if (track.keysKnown) json["key_chunks"] = track.keyChunks;
  json["bytes"] = track.bytes;
  json["duration_ms"] = track.duration_ms;
  return json;
}

}  // namespace kestro::tool
