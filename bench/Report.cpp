#include "Report.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace kestro::bench {

namespace {

template <class... Values>
std::string Text(char const* format, Values... values) {
  char text[512];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

void Save(std::string const& path, std::string const& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

std::string Family(Result const& result) { return result.name.substr(0, result.name.find('/')); }

std::string Number(double value, std::string const& unit) {
  return Text(value < 1000 ? "%.4g %s" : "%.0f %s", value, unit.c_str());
}

// A single repetition has no spread.
std::string Percent(double spread) { return spread > 0 ? Text("%.1f %%", spread * 100) : "-"; }

std::string Markdown(std::vector<Result> const& results) {
  std::ostringstream out;
  out << "# Results\n\nMedians; ratio: ours / baseline, less is better; spread: between the\n"
         "quartiles, of ours and of the baseline.\n";
  std::string family;
  for (Result const& result : results) {
    if (Family(result) != family)
      out << "\n## " << (family = Family(result))
          << "\n\n| benchmark | ours | baseline | ratio | spread |\n|---|--:|--:|--:|--:|\n";
    std::string const ours = "| " + result.name + " | " + Number(result.value, result.unit) + " |";
    if (result.baselines.empty()) out << ours << " | | " << Percent(result.spread) << " |\n";
    for (Baseline const& b : result.baselines) {
      double const ratio = result.Ratio(b);
      out << ours << " " << b.name << ": " << Number(b.value, result.unit)
          << Text(ratio < 0.1 ? " | %.2g | " : " | %.3f | ", ratio) << Percent(result.spread)
          << ", " << Percent(b.spread) << " |\n";
    }
  }
  return out.str();
}

constexpr char kStyle[] =
    "<style>text{font:12px sans-serif;fill:#24292f}.title{font-weight:bold}.page{fill:#fff}"
    ".less{fill:#2f7d6d}.more{fill:#c4682b}.line{stroke:#d0d7de}.one{stroke:#24292f}"
    "@media(prefers-color-scheme:dark){text{fill:#e6edf3}.page{fill:#0d1117}.less{fill:#4fb8a3}"
    ".more{fill:#e08e4f}.line{stroke:#30363d}.one{stroke:#e6edf3}}</style>\n";

// Bars from 1 to the ratio, on a logarithmic scale, cut at its ends.
std::string Svg(std::vector<Result> const& results) {
  constexpr int kLeft = 270, kWidth = 480, kRow = 18, kTop = 56;
  constexpr double kDecades = 2;  // on each side of 1
  auto const x = [](double ratio) {
    double const log = std::log10(std::clamp(ratio, 1e-9, 1e9));
    return kLeft + kWidth * (std::clamp(log / kDecades, -1.0, 1.0) + 1) / 2;
  };
  std::ostringstream bars;
  int y = kTop;
  std::string family;
  for (Result const& result : results) {
    // Without additional figures.
    if (std::count(result.name.begin(), result.name.end(), '/') > 1) continue;
    for (Baseline const& b : result.baselines) {
      if (!family.empty() && family != Family(result)) y += kRow / 2;
      family = Family(result);
      double const ratio = result.Ratio(b), from = std::min(x(1), x(ratio));
      bars << Text("<text x='%d' y='%d' text-anchor='end'>%s ÷ %s</text>", kLeft - 10, y + 13,
                   result.name.c_str(), b.name.c_str())
           << Text("<rect class='%s' x='%.1f' y='%d' width='%.1f' height='%d'/>",
                   ratio > 1 ? "more" : "less", from, y + 3, std::abs(x(ratio) - x(1)), kRow - 6)
           << Text("<text x='%d' y='%d'>%.3g</text>\n", kLeft + kWidth + 10, y + 13, ratio);
      y += kRow;
    }
  }
  int const height = y + 12;
  std::ostringstream out;
  out << Text("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %d %d' width='%d'>\n", 830,
              height, 830)
      << kStyle << Text("<rect class='page' width='830' height='%d'/>\n", height)
      << "<text class='title' x='12' y='20'>Cost, ours ÷ baseline: left of 1 is cheaper</text>\n";
  for (double ratio : {0.01, 0.1, 1.0, 10.0, 100.0})
    out << Text("<line class='%s' x1='%.1f' x2='%.1f' y1='%d' y2='%d'/>",
                ratio == 1.0 ? "one" : "line", x(ratio), x(ratio), kTop - 4, y)
        << Text("<text x='%.1f' y='%d' text-anchor='middle'>%g</text>\n", x(ratio), kTop - 10,
                ratio);
  out << bars.str() << "</svg>\n";
  return out.str();
}

}  // namespace

void WriteJson(std::string const& path, std::vector<Result> const& results) {
  auto list = nlohmann::ordered_json::array();
  for (Result const& result : results) {
    nlohmann::ordered_json entry{{"name", result.name},
                                 {"value", result.value},
                                 {"unit", result.unit},
                                 {"spread", result.spread}};
    auto ratios = nlohmann::ordered_json::object();
    auto baselines = nlohmann::ordered_json::object();
    for (Baseline const& b : result.baselines) {
      ratios[b.name] = result.Ratio(b);
      baselines[b.name] = {{"value", b.value}, {"spread", b.spread}};
    }
    entry["ratios"] = std::move(ratios);
    entry["baselines"] = std::move(baselines);
    list.push_back(std::move(entry));
  }
  Save(path, nlohmann::ordered_json{{"schema", 1}, {"results", std::move(list)}}.dump(2) + "\n");
}

void WriteReport(std::string const& folder, std::vector<Result> const& results) {
  std::error_code failed;
  std::filesystem::create_directories(folder, failed);
  if (failed) throw std::runtime_error("cannot make " + folder + ": " + failed.message());
  WriteJson(folder + "/results.json", results);
  // Keep the results of a family together, even if they were measured at different times.
  std::vector<Result> grouped;
  for (Result const& result : results) {
    auto const last = std::find_if(grouped.rbegin(), grouped.rend(), [&](Result const& other) {
      return Family(other) == Family(result);
    });
    grouped.insert(last == grouped.rend() ? grouped.end() : last.base(), result);
  }
  Save(folder + "/results.md", Markdown(grouped));
  Save(folder + "/results.svg", Svg(grouped));
}

}  // namespace kestro::bench
