#include "verbs/VerifyVerb.h"

#include <CLI/CLI.hpp>

#include "cli/Console.h"
#include "cli/Documents.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "verify/Verify.h"

namespace kestro::tool {

void VerifyVerb::AddTo(CLI::App& app) {
  app.add_option("FILE", _files, "AVI files")->required()->type_name("");
  app.add_flag("--json", _json, "Write JSON");
  app.add_flag("--deep", _deep, "Also check the key frames of H.264 and HEVC data");
  _progress.AddTo(app);
  app.footer(
      "Examples:\n"
      "  kestro-avi verify out.avi\n"
      "  kestro-avi verify --deep --json *.avi | jq '.files[] | {file, errors, warnings}'\n\n"
      "Exit codes: 0 clean or only notes, 1 errors or warnings, 3 cannot be read, 4 unusable (not "
      "an\n"
      "AVI file, no stream headers, no data list).");
}

static char const* Text(Severity severity) {
  return severity == Severity::kError     ? "error"
         : severity == Severity::kWarning ? "warning"
                                          : "note";
}

static Json ValueJson(Value const& value) {
  return std::visit([](auto const& held) { return Json(held); }, value);
}

static Json FileJson(std::string const& path, bool usable, Findings const& findings) {
  Json json{{"file", path},
            {"usable", usable},
            {"errors", findings.Count(Severity::kError)},
            {"warnings", findings.Count(Severity::kWarning)},
            {"notes", findings.Count(Severity::kNote)},
            {"counts", Json::object()},
            {"findings", Json::array()}};
  for (auto const& group : findings.Groups()) {
    json["counts"][group.kind->id] = group.count;
    for (Finding const& finding : group.first)
      json["findings"].push_back({{"id", group.kind->id},
                                  {"severity", Text(group.kind->severity)},
                                  {"offset", finding.offset},
                                  {"expected", ValueJson(finding.expected)},
                                  {"found", ValueJson(finding.found)}});
  }
  return json;
}

static std::string ValueText(Value const& value) {
  if (auto const* number = std::get_if<int64>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

static std::string Summary(bool usable, Findings const& findings) {
  std::string text = usable ? "" : "unusable";
  for (Severity severity : {Severity::kError, Severity::kWarning, Severity::kNote}) {
    uint64 const count = findings.Count(severity);
    if (count == 0) continue;
    if (!text.empty()) text += ", ";
    text += Quantity(count, Text(severity));
  }
  return text.empty() ? "clean" : text;
}

// A paragraph for each kind of finding, with offsets, expected and found values in columns.
static std::string FileText(std::string const& path, bool usable, Findings const& findings) {
  std::string text = Shown(path) + ": " + Summary(usable, findings) + "\n";
  for (auto const& group : findings.Groups()) {
    text += std::string("  ") + Text(group.kind->severity) + " " + group.kind->id + ": " +
            group.kind->meaning + "\n";
    std::size_t width = 0;
    for (Finding const& finding : group.first)
      width = std::max(width, ValueText(finding.expected).size());
    for (Finding const& finding : group.first) {
      char line[64];
      std::snprintf(line, sizeof line, "  %12lld  expected ", finding.offset);
      std::string const expected = ValueText(finding.expected);
      text += line + expected + std::string(width - expected.size(), ' ') + "  found " +
              ValueText(finding.found) + "\n";
    }
    if (group.count > group.first.size())
      text += "                and " + std::to_string(group.count - group.first.size()) +
              " more like these\n";
  }
  return text;
}

int VerifyVerb::Run() {
  std::uint64_t all = 0, before = 0;
  for (std::string const& path : _files) all += Progress::SizeOf(path);
  Progress progress(_progress, "verify", Progress::kBytes, all);
  int const worst = ForEachFile(_files, _json, [&](std::string const& path, Json& array) {
    Findings findings;
    bool const usable = Verify(path, _deep, findings, [&](int64 position) {
      progress.Update(before + static_cast<std::uint64_t>(position));
    });
    before += Progress::SizeOf(path);
    if (_json)
      array.push_back(FileJson(path, usable, findings));
    else
      WriteData(FileText(path, usable, findings));
    bool const good =
        findings.Count(Severity::kError) == 0 && findings.Count(Severity::kWarning) == 0;
    return !usable ? kUnusable : good ? kOk : kFindings;
  });
  progress.End();
  return worst;
}

}  // namespace kestro::tool
