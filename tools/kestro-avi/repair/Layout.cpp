#include "repair/Layout.h"

#include "avi/AviFile.h"
#include "base/LittleEndian.h"
#include "cli/Errors.h"
#include "repair/Salvage.h"
#include "repair/Window.h"

namespace kestro::tool {

using base::Convert4;

// Whether the track is as the plug-in describes it.
static bool IsOwn(avi::AviTrack const& track) {
  std::string const& codec = track.codec;
  if (track.type == "video")
    return track.scale == 10000 && track.extra.empty() &&
           ((codec == "h264" && track.handler == "H264") ||
            (codec == "hevc" && track.handler == "hev1") ||
            (codec == "mjpeg" && track.handler == "MJPG"));
  if (track.type == "audio") return codec == "pcm" && track.handler == "PCM" && track.scale != 0;
  return track.type == "text" && track.handler.empty() && track.scale == 10000;
}

// Finds what is in the lists before the data.
static void ReadHeaders(avi::AviFile const& head, Layout& layout) {
  constexpr int64 kFields = 56;
  layout.tracks = head.Tracks();
  layout.own = true;
  bool inTrack = false;  // in a strl without strh so far
  bool listed = false;
  for (avi::Chunk const& chunk : head.Tree()) {
    if (chunk.type == Convert4("strl")) inTrack = true;
    listed = listed || chunk.type == Convert4("hdrl");
    bool const avih = chunk.id == Convert4("avih"), strh = chunk.id == Convert4("strh");
    if ((avih || strh) && chunk.size != kFields) layout.own = false;
    if (chunk.id == Convert4("indx")) layout.own = false;
    if (avih && layout.avih == 0) layout.avih = chunk.Payload();
    if (strh && inTrack) layout.strh.push_back(chunk.Payload());
    if (strh) inTrack = false;
  }
  if (!listed || layout.avih == 0 || layout.strh.size() != layout.tracks.size()) layout.own = false;
  for (avi::AviTrack const& track : layout.tracks) layout.own = layout.own && IsOwn(track);
}

// Whether JUNK directly before the data still has the entries of an index.
static bool WasIndex(avi::RiffReader& file, avi::Chunk const& junk, Layout const& layout) {
  unsigned char entry[16];
  return junk.end == layout.movi.offset && file.Read(junk.Payload(), entry, 16) == 16 &&
         Salvage::IsTrackData(layout.tracks, base::Load32(entry)) &&
         base::Load32(entry + 8) == layout.Data();
}

Layout ReadLayout(avi::RiffReader& file, std::string const& name,
                  std::function<std::unique_ptr<base::IO>()> const& open) {
  Layout layout;
  if (!file.Header(0, file.Size(), layout.riff) || layout.riff.id != Convert4("RIFF") ||
      layout.riff.type != Convert4("AVI "))
    throw Error(kUnusable, name + ": not an AVI file: no RIFF AVI at offset 0");
  constexpr int kMost = 65536;
  avi::Chunk chunk, junk;
  int64 at = layout.riff.Data();
  for (int number = 0; layout.movi.id == 0; ++number, at = file.Next(chunk)) {
    bool const movi = file.Header(at, file.Size(), chunk) && chunk.type == Convert4("movi");
    if (number == kMost || (!movi && (chunk.id == 0 || chunk.offset != at || chunk.Cut())))
      throw Error(kUnusable, name + ": no movi list: it ends within its header");
    if (chunk.id == Convert4("idx1") && layout.front.id == 0) layout.front = chunk;
    if (chunk.id == Convert4("JUNK")) junk = chunk;
    if (movi) layout.movi = chunk;
  }
  auto head = std::make_unique<Window>(open(), 0, layout.Data());
  ReadHeaders(avi::AviFile(std::move(head), name), layout);
  if (junk.id != 0 && WasIndex(file, junk, layout)) layout.retired = junk;
  return layout;
}

}  // namespace kestro::tool
