#include "verbs/RepairVerb.h"

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/Plugin.h"
#include "cli/Text.h"
#include "media/FrameRate.h"
#include "verbs/RepairInPlace.h"

namespace kestro::tool {

using Source = RepairReport::Source;

void RepairVerb::AddTo(Options& options) {
  options.Texts("IN", _inputs, "", "The recording; several with --in-place").Required();
  auto const output =
      options.Text("-o,--output", _job.output, "OUT.avi", "The AVI file to write").Seekable();
  auto const image =
      options.Text("--image", _job.image, "FILE", "The side file with headers and index [IN.sync]");
  auto const rate =
      options.Text("--fps", _rate, "N[/D]", "Frame rate of the video, instead of that of IN");
  _json.AddTo(options);
  auto const force = options.Flag("--force", _job.force, "Overwrite OUT");
  options.Flag("--in-place", _inPlace, "Complete IN itself instead of writing a copy")
      .Excludes(output)
      .Excludes(image)
      .Excludes(rate)
      .Excludes(force);
  _progress.AddTo(options);
  options.Text("--plugin", _plugin, "PATH", "The plug-in or its folder");
  options.Footer(
      "Examples:\n"
      "  kestro-avi repair cut.avi -o whole.avi\n"
      "  kestro-avi repair cut.avi --image cut.avi.sync -o whole.avi\n"
      "  kestro-avi repair --fps 30 camera.avi -o whole.avi\n"
      "  kestro-avi repair --json cut.avi -o whole.avi | jq .lost\n"
      "  kestro-avi repair --in-place /media/card/*.avi\n\n"
      "Packets are copied in the order of IN, and unchanged except that length-prefixed video "
      "gets\n"
      "start codes. They are found with the side file or the index of IN, and by searching the\n"
      "data, also after damaged parts. Packets that are cut or whose start is lost are dropped. "
      "Key\n"
      "frames are detected in the coded data. OUT is an ordinary recording with the index after "
      "the\n"
      "data: repairing an undamaged file with its index before the data makes it seekable in "
      "every\n"
      "player. Like \"record\", it stores the whole part of the frame rate and puts motion JPEG "
      "and\n"
      "text last.\n\n"
      "With --in-place, recordings of this system that were cut off are completed where they are, "
      "which\n"
      "needs only room for the index. Whole ones are not changed. A power cut meanwhile loses\n"
      "nothing: repeat the repair. What cannot be mended in this way is refused.\n\n"
      "Exit codes: 0 OUT has everything that is in IN, 1 something was lost or left out, 3 I/O\n"
      "error, 4 not repairable (no stream headers, no complete packet, the side file of another\n"
      "recording; in place: still being recorded, or damaged). Of several files, the highest.");
}

static std::string Packets(Counted const& count) {
  return Quantity(count.packets, "packet") + ", " + std::to_string(count.bytes) + " bytes";
}

static char const* Name(Source source) {
  return source == Source::kImage ? "image" : source == Source::kIndex ? "index" : "none";
}

std::string RepairVerb::Text(RepairReport const& report) const {
  SalvageCounts const& counts = report.counts;
  std::string text = Shown(_job.input) + ": kept " + Packets(report.kept) + "; lost " +
                     Packets(report.lost) + "\n";
  for (std::size_t i = 0; i < report.tracks.size(); ++i) {
    text += "  track " + std::to_string(i) + ": " + report.tracks[i].Kind() + ": kept " +
            Packets(counts.kept[i]);
    if (counts.lost[i].packets != 0) text += "; lost " + Packets(counts.lost[i]);
    int const number = report.numbers[i];
    if (number < 0) text += " (cannot be recorded)";
    if (number >= 0 && static_cast<std::size_t>(number) != i)
      text += " (track " + std::to_string(number) + " of OUT)";
    text += "\n";
  }
  text +=
      "  found by the " +
      (report.source == Source::kImage ? "index of " + Shown(report.image) : std::string("index")) +
      ": " + Quantity(counts.indexed, "packet") + "; in the data: " + std::to_string(counts.found) +
      "\n";
  auto const line = [&text](base::uint64 count, char const* what) {
    if (count != 0) text += "  " + std::to_string(count) + " " + what + "\n";
  };
  line(counts.unknown.packets, "packets of tracks without a stream header");
  line(counts.misled, "index entries do not point to a packet");
  line(counts.corrected, "key frame marks of the index were wrong");
  line(counts.skipped.bytes, "bytes are not part of a packet:");
  for (Hole const& hole : counts.holes)
    text += "    " + std::to_string(hole.size) + " at offset " + std::to_string(hole.offset) + "\n";
  if (counts.skipped.packets > counts.holes.size())
    text += "    and " + std::to_string(counts.skipped.packets - counts.holes.size()) + " more\n";
  for (Loss const& loss : counts.losses)
    text += "  lost: " + avi::CodeText(loss.id) + " at offset " + std::to_string(loss.offset) +
            ", " + std::to_string(loss.bytes) + " bytes\n";
  return text;
}

static Json CountJson(Counted const& count) {
  return {{"packets", count.packets}, {"bytes", count.bytes}};
}

Json RepairVerb::Document(RepairReport const& report) const {
  SalvageCounts const& counts = report.counts;
  Json json{{"input", _job.input},
            {"output", _job.output},
            {"size", report.size},
            {"complete", report.Complete()},
            {"source", Name(report.source)},
            {"image", report.image},
            {"head_of_image", report.headOfImage},
            {"head_of_copy", report.headOfCopy},
            {"kept", CountJson(report.kept)},
            {"lost", CountJson(report.lost)},
            {"tracks", Json::array()},
            {"losses", Json::array()},
            {"indexed", counts.indexed},
            {"found", counts.found},
            {"unknown", CountJson(counts.unknown)},
            {"entries_astray", counts.misled},
            {"keys_corrected", counts.corrected},
            {"skipped_bytes", counts.skipped.bytes},
            {"skipped_parts", counts.skipped.packets},
            {"skipped", Json::array()}};
  for (std::size_t i = 0; i < report.tracks.size(); ++i)
    json["tracks"].push_back({{"number", i},
                              {"type", report.tracks[i].type},
                              {"codec", report.tracks[i].codec},
                              {"recorded", report.numbers[i] >= 0},
                              {"output_number", report.numbers[i]},
                              {"kept", CountJson(counts.kept[i])},
                              {"lost", CountJson(counts.lost[i])}});
  for (Loss const& loss : counts.losses)
    json["losses"].push_back(
        {{"chunk", avi::CodeText(loss.id)}, {"offset", loss.offset}, {"bytes", loss.bytes}});
  for (Hole const& hole : counts.holes)
    json["skipped"].push_back({{"offset", hole.offset}, {"size", hole.size}});
  return json;
}

RepairReport RepairVerb::RepairWithProgress() const {
  RepairJob job = _job;
  Progress progress(_progress, "repair", Progress::kBytes, Progress::SizeOf(job.input));
  job.advance = [&](int64 position) { progress.Update(static_cast<std::uint64_t>(position)); };
  RepairReport report = Repair(job);
  if (!report.interrupted) progress.End();
  return report;
}

int RepairVerb::Run() {
  if (_inPlace) return RepairInPlace(_inputs, static_cast<bool>(_json), _progress);
  if (_job.output.empty()) throw Error(kUsage, "--output is required (or --in-place)");
  if (_inputs.size() > 1) throw Error(kUsage, "only --in-place repairs several files");
  _job.input = _inputs[0];
  if (!_rate.empty()) _job.rate = ParseRate(_rate);
  LoadAviPlugin(_plugin);
  CatchSignals();
  RepairReport const report = RepairWithProgress();
  for (std::string const& note : report.notes) ReportNote(note);
  for (std::string const& warning : report.warnings) ReportWarning(warning);
  if (report.interrupted) return kInterrupted;
  if (_json)
    SetAnswer(Document(report));
  else
    WriteData(Text(report));
  Report(_job.output + ": " + Packets(report.kept) + ", " + ByteCount(report.size));
  return report.Complete() && report.warnings.empty() ? kOk : kFindings;
}

}  // namespace kestro::tool
