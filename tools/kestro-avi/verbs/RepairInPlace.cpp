#include "verbs/RepairInPlace.h"

#include "cli/Answer.h"
#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/Text.h"
#include "repair/InPlace.h"

namespace kestro::tool {

static std::string Packets(Counted const& count) {
  return Quantity(count.packets, "packet") + ", " + std::to_string(count.bytes) + " bytes";
}

static std::string Text(std::string const& name, InPlaceReport const& report) {
  if (report.whole) return Shown(name) + ": whole\n";
  std::string text = Shown(name) + ": mended: kept " + Packets(report.Kept()) + "; lost " +
                     Packets(report.Lost()) + "\n";
  for (std::size_t i = 0; i < report.tracks.size(); ++i)
    text += "  track " + std::to_string(i) + ": " + report.tracks[i].Kind() + ": kept " +
            Packets(report.kept[i]) + "\n";
  text += "  found by the index: " + Quantity(report.indexed, "packet") +
          "; in the data: " + std::to_string(report.Kept().packets - report.indexed) +
          "\n  index " + (report.front ? "before" : "after") +
          " the data: " + std::to_string(report.entries) +
          (report.entries == 1 ? " entry\n" : " entries\n");
  if (report.removed != 0)
    text += "  removed from the end: " + std::to_string(report.removed) + " bytes\n";
  for (Hole const& hole : report.counts.holes)
    text += "  not part of a packet: " + std::to_string(hole.size) + " bytes at offset " +
            std::to_string(hole.offset) + "\n";
  if (!report.side.empty()) text += "  removed: " + Shown(report.side) + "\n";
  return text;
}

static Json CountJson(Counted const& count) {
  return {{"packets", count.packets}, {"bytes", count.bytes}};
}

static Json Document(std::string const& name, InPlaceReport const& report) {
  Json json{{"file", name},
            {"whole", report.whole},
            {"complete", report.Complete()},
            {"kept", CountJson(report.Kept())},
            {"lost", CountJson(report.Lost())},
            {"tracks", Json::array()},
            {"indexed", report.indexed},
            {"entries", report.entries},
            {"index_first", report.front},
            {"removed_bytes", report.removed},
            {"skipped_bytes", report.counts.skipped.bytes},
            {"side_file", report.side}};
  for (std::size_t i = 0; i < report.kept.size(); ++i)
    json["tracks"].push_back({{"number", i},
                              {"type", report.tracks[i].type},
                              {"codec", report.tracks[i].codec},
                              {"kept", CountJson(report.kept[i])}});
  return json;
}

int RepairInPlace(std::vector<std::string> const& files, bool json, ProgressOption const& option) {
  CatchSignals();
  return ForEachFile(files, [&](std::string const& path, Json& array) {
    if (Interrupted()) return kInterrupted;
    Progress progress(option, "repair", Progress::kBytes, Progress::SizeOf(path));
    InPlaceJob job{path, path};
    job.advance = [&](int64 position) { progress.Update(static_cast<std::uint64_t>(position)); };
    InPlaceReport const report = RepairFile(job);
    for (std::string const& warning : report.warnings) ReportWarning(warning);
    if (report.interrupted) return kInterrupted;
    progress.End();
    if (json)
      array.push_back(Document(path, report));
    else
      WriteData(Text(path, report));
    return report.Complete() && report.warnings.empty() ? kOk : kFindings;
  });
}

}  // namespace kestro::tool
