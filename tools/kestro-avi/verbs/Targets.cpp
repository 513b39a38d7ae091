#include "verbs/Targets.h"

#include <algorithm>
#include <filesystem>

#include "avi/NumberedName.h"
#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/NewFile.h"
#include "cli/Text.h"
#include "media/MediaModule.h"

namespace kestro::tool {

namespace fs = std::filesystem;

// The extensions that are not containers, and their codecs. The first one of a codec is its
// default.
static constexpr struct {
  char const* extension;
  char const* codec;
  Target::Form form;
} kFormats[] = {
    {".h264", "h264", Target::kStream},    {".264", "h264", Target::kStream},
    {".h265", "hevc", Target::kStream},    {".265", "hevc", Target::kStream},
    {".hevc", "hevc", Target::kStream},    {".mjpeg", "mjpeg", Target::kStream},
    {".mjpg", "mjpeg", Target::kStream},   {".jpg", "mjpeg", Target::kNumbered},
    {".jpeg", "mjpeg", Target::kNumbered}, {".wav", "pcm", Target::kWave},
    {".srt", "text", Target::kSrt},        {".jsonl", "text", Target::kJsonLines},
    {".txt", "text", Target::kNumbered},
};

std::string Targets::TrackName(std::size_t track) const {
  return _file + ", track " + std::to_string(track);
}

// Whether a track that is not text can be extracted.
static bool Extractable(avi::AviTrack const& track) {
  if (track.codec != "pcm")
    return track.codec == "h264" || track.codec == "hevc" || track.codec == "mjpeg";
  unsigned const bits = track.bits;
  return track.channels != 0 && track.sampleRate != 0 && bits % 8 == 0 && bits >= 8 && bits <= 32;
}

// Why a track cannot be extracted; empty if it can.
std::string Targets::Obstacle(std::size_t track) const {
  avi::AviTrack const& info = _avi.Tracks()[track];
  avi::AviTrack const& clock = _avi.Tracks()[_avi.ClockOf(track)];
  bool const text = info.codec == "text";
  if (!text && !Extractable(info)) return info.Kind() + " cannot be extracted";
  if (info.chunks == 0) return info.Kind() + " has no data";
  if (text && (clock.rate == 0 || clock.scale == 0))
    return "its texts have no times: " +
           std::string(&clock == &info ? "there is no video, and the track has no rate"
                                       : "the video has no frame rate");
  return "";
}

std::string Targets::NameFor(std::size_t track) const {
  if (!Obstacle(track).empty()) return "";
  auto const* const row =
      std::find_if(std::begin(kFormats), std::end(kFormats),
                   [&](auto const& e) { return _avi.Tracks()[track].codec == e.codec; });
  return fs::path(_file).stem().string() + "-" + std::to_string(track) + row->extension;
}

static bool Same(fs::path const& a, fs::path const& b) {
  return fs::absolute(a).lexically_normal() == fs::absolute(b).lexically_normal();
}

void Targets::AddSelected(std::vector<std::string> const& texts) {
  for (std::string const& text : texts) {
    std::size_t const sign = text.find(':');
    std::string const number = text.substr(0, sign);
    if (sign == std::string::npos || sign + 1 == text.size() || number.empty() ||
        number.size() > 3 || number.find_first_not_of("0123456789") != std::string::npos)
      throw Error(kUsage, "--track: \"" + text + "\" is not N:OUT");
    std::size_t const track = std::stoul(number);
    if (track >= _avi.Tracks().size())
      throw Error(kUsage, "--track: " + _file + " has tracks 0 to " +
                              std::to_string(_avi.Tracks().size() - 1));
    std::string const path = text.substr(sign + 1);
    auto target = std::find_if(_list.begin(), _list.end(),
                               [&path](Target const& known) { return Same(known.path, path); });
    if (target == _list.end()) target = _list.insert(target, {path, {}});
    if (std::count(target->tracks.begin(), target->tracks.end(), track) != 0)
      throw Error(kUsage, "--track: \"" + text + "\" is given twice");
    target->tracks.push_back(track);
  }
  for (Target& target : _list) target.form = FormOf(target);
}

std::vector<std::string> Targets::AddAll(std::string const& folder) {
  std::vector<std::string> skipped;
  for (std::size_t i = 0; i < _avi.Tracks().size(); ++i) {
    if (std::string const name = NameFor(i); name.empty())
      skipped.push_back(TrackName(i) + ": " + Obstacle(i));
    else
      _list.push_back({(fs::path(folder) / name).string(), {i}});
  }
  if (_list.empty()) {
    std::string why = _file + ": no track can be extracted";
    for (std::string const& track : skipped) why += "; " + track;
    throw Error(kUnusable, why);
  }
  for (Target& target : _list) target.form = FormOf(target);
  std::error_code failed;
  fs::create_directories(folder, failed);
  if (failed) throw Error(kIo, folder + ": " + failed.message());
  return skipped;
}

Target::Form Targets::FormOf(Target const& target) const {
  if (target.path == "-") return FormOfOutput(target);
  std::string const extension = Extension(target.path);
  auto const* const row = std::find_if(std::begin(kFormats), std::end(kFormats),
                                       [&](auto const& e) { return extension == e.extension; });
  auto const refuse = [&target](std::string const& why) {
    throw Error(kUsage, target.path + ": " + why);
  };
  if (row == std::end(kFormats)) {
    if (!LoadMedia().KnowsContainer(target.path)) refuse("unknown file name extension");
    for (std::size_t track : target.tracks)
      if (_avi.Tracks()[track].codec == "text")
        refuse(TrackName(track) +
               " is text, which can be written to .srt, .jsonl or numbered .txt files");
    return Target::kContainer;
  }
  avi::AviTrack const& track = _avi.Tracks()[target.tracks[0]];
  if (target.tracks.size() > 1) refuse("this file format holds only one track");
  if (track.codec != row->codec)
    refuse(TrackName(target.tracks[0]) + " is " + track.Kind() +
           ", which this file format cannot hold");
  if (row->form == Target::kNumbered && !avi::Numbered(target.path))
    refuse("one file is written per chunk: the name needs a number, such as %04d" + extension);
  return row->form;
}

// The form of what goes to standard output: the default one of the codec.
Target::Form Targets::FormOfOutput(Target const& target) const {
  if (target.tracks.size() > 1) throw Error(kUsage, "--track: standard output takes one track");
  if (OutputIsTerminal())
    throw Error(kUsage, "--track: standard output is a terminal; send it to a pipe or a file");
  std::string const& codec = _avi.Tracks()[target.tracks[0]].codec;
  auto const* const row = std::find_if(std::begin(kFormats), std::end(kFormats),
                                       [&codec](auto const& e) { return codec == e.codec; });
  return row == std::end(kFormats) ? Target::kStream : row->form;
}

void Targets::CheckPath(std::string const& path, bool force) const {
  std::error_code none;
  for (std::string const& written : {path, NewFile::TemporaryOf(path)})
    if (fs::equivalent(written, _file, none)) throw Error(kUsage, written + ": is the input");
  NewFile::Check(path, force);
}

void Targets::Check(bool force) const {
  for (Target const& target : _list) {
    for (std::size_t track : target.tracks)
      if (std::string const why = Obstacle(track); !why.empty())
        throw Error(kUnusable, TrackName(track) + ": " + why);
    if (target.path == "-") continue;
    std::uint64_t const files =
        target.form == Target::kNumbered ? _avi.Tracks()[target.tracks[0]].chunks : 0;
    for (std::uint64_t i = 1; i <= files; ++i) CheckPath(avi::NumberedName(target.path, i), force);
    if (files == 0) CheckPath(target.path, force);
  }
}

}  // namespace kestro::tool
