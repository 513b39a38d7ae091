#include "verbs/VerifyVerb.h"

#include "avi/TrackReader.h"
#include "cli/Console.h"
#include "cli/Documents.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/NewFile.h"
#include "cli/Text.h"
#include "media/MediaModule.h"
#include "verbs/HashFile.h"
#include "verify/ReadAnnexB.h"
#include "verify/Verify.h"

namespace kestro::tool {

void VerifyVerb::AddTo(Options& options) {
  options.Texts("FILE", _files, "", "AVI files").Required();
  _json.AddTo(options);
  auto const deep =
      options.Flag("--deep", _deep, "Also check the key frames of H.264 and HEVC data");
  auto const decode =
      options.Flag("--decode", _decode, "Decode all video and name broken pictures");
  auto const hash =
      options.Flag("--hash", _hash, "Write FILE.sha256, with hashes of file and packets");
  auto const check = options.Flag("--check", _check, "Compare with FILE.sha256 instead");
  for (Option const& option : {hash, check}) option.Excludes(deep).Excludes(decode);
  check.Excludes(hash);
  options.Flag("--force", _force, "Overwrite FILE.sha256").Needs(hash);
  _progress.AddTo(options);
  options.Footer(
      "Examples:\n"
      "  kestro-avi verify out.avi\n"
      "  kestro-avi verify --decode out.avi\n"
      "  kestro-avi verify --hash *.avi && kestro-avi verify --check *.avi\n"
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

// Decodes the frames of all video tracks. Returns the numbers of the damaged ones, by track.
Json VerifyVerb::Decode(std::string const& path, Findings& findings) const {
  avi::AviFile avi(path);
  std::vector<std::unique_ptr<FrameChecker>> checkers;
  std::vector<bool> selected;
  for (avi::AviTrack const& track : avi.Tracks()) {
    bool const video = track.codec == "h264" || track.codec == "hevc" || track.codec == "mjpeg";
    selected.push_back(video);
    checkers.push_back(video ? LoadMedia().NewFrameChecker(track) : nullptr);
  }
  std::vector<std::vector<int64>> offsets(avi.Tracks().size());  // by track, of all frames
  std::vector<Json> broken(avi.Tracks().size(), Json::array());
  auto const report = [&](std::size_t track, std::vector<std::uint64_t> const& damaged) {
    for (std::uint64_t const frame : damaged) {
      broken[track].push_back(frame);
      findings.Add(
          found::kBroken, offsets[track][frame], "a picture",
          "damage in frame " + std::to_string(frame) + " of track " + std::to_string(track));
    }
  };
  ReadAnnexB(avi, selected, [&](std::size_t track, avi::Piece const& piece, std::size_t) {
    offsets[track].push_back(piece.offset);
    report(track, checkers[track]->Check(piece.data, piece.size));
    return !Interrupted();
  });
  Json decoded = Json::array();
  for (std::size_t i = 0; i < checkers.size(); ++i) {
    if (!checkers[i]) continue;
    report(i, checkers[i]->Finish());
    decoded.push_back(
        {{"track", i}, {"frames", offsets[i].size()}, {"damaged", std::move(broken[i])}});
  }
  return decoded;
}

int VerifyVerb::WriteHashes() const {
  for (std::string const& path : _files) NewFile::Check(avi::HashFileFor(path), _force);
  return ForEachFile(_files, [this](std::string const& path, Json& array) {
    Progress progress(_progress, "verify", Progress::kBytes, Progress::SizeOf(path));
    auto const advance = [&progress](std::uint64_t done) {
      progress.Update(done);
      return !Interrupted();
    };
    avi::AviFile avi(path);
    std::string text;
    std::string const name = avi::HashFileFor(path);
    std::string const hash = avi::WriteHashes(
        avi, path.substr(path.rfind('/') + 1), [&text](std::string const& line) { text += line; },
        advance);
    if (Interrupted()) return kInterrupted;
    progress.End();
    WriteFile(name, text.data(), static_cast<unsigned>(text.size()));
    Report(name + ": written");
    array.push_back({{"file", path}, {"hash_file", name}, {"sha256", hash}});
    return kOk;
  });
}

int VerifyVerb::CheckHashes() const {
  return ForEachFile(_files, [this](std::string const& path, Json& array) {
    HashFile const expected = HashFile::Read(avi::HashFileFor(path));
    auto const found = HashFile::Of(path, [](std::uint64_t) { return !Interrupted(); });
    if (Interrupted()) return kInterrupted;
    auto const differences = expected.Differences(found);
    bool const same = differences.lines.empty();
    if (_json) {
      array.push_back({{"file", path},
                       {"hash_file", avi::HashFileFor(path)},
                       {"same", same},
                       {"changed_packets", differences.count},
                       {"changes", Json::array()}});
      for (auto const& packet : differences.first)
        array.back()["changes"].push_back(
            {{"track", packet.track}, {"packet", packet.number}, {"change", packet.change}});
    } else {
      WriteData(Shown(path) + (same ? ": as hashed\n" : ": changed\n"));
      for (std::string const& line : differences.lines) WriteData("  " + line + "\n");
    }
    return same ? kOk : kFindings;
  });
}

int VerifyVerb::Run() {
  CatchSignals();
  if (_hash) return WriteHashes();
  if (_check) return CheckHashes();
  std::uint64_t all = 0, before = 0;
  for (std::string const& path : _files) all += Progress::SizeOf(path);
  Progress progress(_progress, "verify", Progress::kBytes, all);
  int const worst = ForEachFile(_files, [&](std::string const& path, Json& array) {
    Findings findings;
    bool const usable = Verify(path, _deep, findings, [&](int64 position) {
      progress.Update(before + static_cast<std::uint64_t>(position));
      if (Interrupted()) throw Error(kInterrupted, path + ": interrupted");
    });
    before += Progress::SizeOf(path);
    Json decoded;
    if (usable && _decode) decoded = Decode(path, findings);
    if (Interrupted()) return kInterrupted;
    if (_json) {
      array.push_back(FileJson(path, usable, findings));
      if (_decode) array.back()["decoded"] = std::move(decoded);
    } else {
      WriteData(FileText(path, usable, findings));
    }
    bool const good =
        findings.Count(Severity::kError) == 0 && findings.Count(Severity::kWarning) == 0;
    return !usable ? kUnusable : good ? kOk : kFindings;
  });
  progress.End();
  return worst;
}

}  // namespace kestro::tool
