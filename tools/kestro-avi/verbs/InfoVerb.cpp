#include "verbs/InfoVerb.h"

#include "avi/AviFile.h"
#include "cli/Console.h"
#include "cli/Documents.h"
#include "cli/Errors.h"
#include "cli/NewFile.h"
#include "cli/Text.h"
#include "plot/Plot.h"
#include "verbs/Details.h"
#include "verbs/Targets.h"
#include "verbs/TrackText.h"
#include "verify/FrameConverter.h"

namespace kestro::tool {

void InfoVerb::AddTo(Options& options) {
  options.Texts("FILE", _files, "", "AVI files").Required();
  _json.AddTo(options);
  options.Flag("--tree", _tree, "Show the chunks with their offsets and sizes");
  options.Flag("--deep", _deep, "Find out whether parameter sets change, in all key frames");
  auto const plot = options.Text("--plot", _plot, "OUT.svg",
                                 "Draw bit rate, key frames, skew and layout of FILE");
  options.Flag("--force", _force, "Overwrite OUT.svg").Needs(plot);
  options.Footer(
      "Examples:\n"
      "  kestro-avi info out.avi\n"
      "  kestro-avi info --tree out.avi\n"
      "  kestro-avi info --plot out.svg out.avi\n"
      "  kestro-avi info --json *.avi | jq '.files[] | {file, duration_ms}'");
}

static char const* PlaceText(avi::AviFile::Index place) {
  switch (place) {
    case avi::AviFile::Index::kFirst:
      return "first";
    case avi::AviFile::Index::kLast:
      return "last";
    default:
      return "none";
  }
}

static Json FileJson(std::string const& path, avi::AviFile& avi, bool tree, bool deep) {
  Json json{{"file", path},
            {"size", avi.Size()},
            {"duration_ms", avi.Duration_ms()},
            {"skew_ms", avi.Skew_ms()},
            {"index", PlaceText(avi.IndexPlace())},
            {"complete", !avi.CutOff()},
            {"notes", avi.Notes()}};
  AddSoftware(json, avi.ReadSoftware());
  json["tracks"] = Json::array();
  auto const formats = ReadFormats(avi, deep);
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i) {
    json["tracks"].push_back(TrackJson(avi, i));
    AddDetails(json["tracks"].back(), avi.Reader(), avi.Tracks()[i], formats[i], deep);
  }
  if (!tree) return json;
  for (avi::Chunk const& chunk : avi.Tree()) {
    Json node{{"depth", chunk.depth}, {"id", avi::CodeText(chunk.id)}};
    if (chunk.type != 0) node["type"] = avi::CodeText(chunk.type);
    node["offset"] = chunk.offset;
    node["size"] = chunk.size;
    json["tree"].push_back(node);
  }
  return json;
}

// Escape sequences for the columns and for the name of a chunk.
static char const kFaint[] = "\033[2m";
static char const* ColourOf(avi::Chunk const& chunk) {
  using base::Convert4;
  if (chunk.type == Convert4("movi")) return "\033[32m";
  if (chunk.type != 0) return "\033[36m";
  if (chunk.id == Convert4("idx1")) return "\033[33m";
  return chunk.id == Convert4("JUNK") ? kFaint : "";
}

// The tree, one chunk per line, or only the outermost chunks in one line.
static std::string TreeText(avi::AviFile const& avi, bool whole) {
  std::string text = whole ? "" : "  layout:";
  auto const coloured = [on = ColouredOutput()](std::string const& plain, char const* colour) {
    return on && *colour != '\0' ? colour + plain + "\033[0m" : plain;
  };
  for (avi::Chunk const& chunk : avi.Tree()) {
    std::string const name =
        chunk.type != 0 ? (whole ? avi::CodeText(chunk.id) + " " : "") + avi::CodeText(chunk.type)
                        : avi::CodeText(chunk.id);
    if (!whole) {
      if (chunk.depth == 1) text += " " + name;
      if (chunk.depth == 0 && chunk.offset != 0) text += " |";
      continue;
    }
    char line[96];
    std::snprintf(line, sizeof line, "  %12lld %12lld  ", chunk.offset, chunk.size);
    text += coloured(line, kFaint) + std::string(2 * static_cast<std::size_t>(chunk.depth), ' ') +
            coloured(name, ColourOf(chunk)) + "\n";
  }
  return whole ? coloured("        offset         size  chunk", kFaint) + "\n" + text : text + "\n";
}

static std::string FileText(std::string const& path, avi::AviFile& avi, bool tree, bool deep) {
  std::string text = Shown(path) + ": AVI, " + std::to_string(avi.Size()) + " bytes, " +
                     Seconds(avi.Duration_ms()) + ", index " + PlaceText(avi.IndexPlace());
  if (avi.Skew_ms() > 0) text += ", tracks end " + Seconds(avi.Skew_ms()) + " apart";
  text += "\n" + SoftwareText(avi.ReadSoftware());
  auto const formats = ReadFormats(avi, deep);
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i)
    text += TrackText(avi, i) + DetailsText(avi.Tracks()[i], formats[i], deep);
  text += TreeText(avi, tree);
  for (std::string const& note : avi.Notes()) text += "  note: " + note + "\n";
  return text;
}

void InfoVerb::Draw(avi::AviFile& avi, std::string const& path) const {
  std::string const picture = Plot(avi, path).Document();
  auto const size = static_cast<unsigned>(picture.size());
  Report(_plot + ": " + ByteCount(WriteFile(_plot, picture.data(), size)));
}

int InfoVerb::Run() {
  if (!_plot.empty() && _files.size() > 1) throw Error(kUsage, "--plot: takes only one FILE");
  return ForEachFile(_files, [this](std::string const& path, Json& array) {
    avi::AviFile avi(path);
    if (!_plot.empty()) Targets(avi, path).CheckPath(_plot, _force);
    if (_json)
      array.push_back(FileJson(path, avi, _tree, _deep));
    else
      WriteData(FileText(path, avi, _tree, _deep));
    if (!_plot.empty()) Draw(avi, path);
    if (!avi.CutOff()) return kOk;
    Report(path + ": is incomplete");
    return kFindings;
  });
}

}  // namespace kestro::tool
