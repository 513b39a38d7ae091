#include "plot/Plot.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "cli/Text.h"
#include "plot/FileMap.h"
#include "plot/Style.h"

namespace kestro::tool {

static constexpr std::size_t kMostTracks = 8;  // number of distinct colours
static constexpr int kIntervals = 240;         // in a chart

static std::vector<Unit> const kTimes{{1, "s"}, {60, "min"}, {3600, "h"}};
static std::vector<Unit> const kLags{{0.001, "ms"}, {1, "s"}, {60, "min"}, {3600, "h"}};
static std::vector<Unit> const kBitRates{
    {1, "bit/s"}, {1e3, "kbit/s"}, {1e6, "Mbit/s"}, {1e9, "Gbit/s"}};
static std::vector<Unit> const kBytes{{1, "bytes"}, {1e3, "kB"}, {1e6, "MB"}, {1e9, "GB"}};

static std::string Colour(std::size_t track) { return " t" + std::to_string(track); }

static std::string Point(double x, double y) { return Coordinate(x) + " " + Coordinate(y); }

// Shortens a name to fit the picture, without splitting UTF-8 characters.
static std::string Shortened(std::string text) {
  constexpr std::size_t kMost = 80, kTail = 20;
  if (text.size() <= kMost) return text;
  auto const begins = [&text](std::size_t at) { return (text[at] & 0xC0) != 0x80; };
  std::size_t head = kMost - kTail, tail = text.size() - kTail;
  while (head > 0 && !begins(head)) --head;
  while (tail < text.size() && !begins(tail)) ++tail;
  return text.substr(0, head) + "\u2026" + text.substr(tail);
}

Plot::Plot(avi::AviFile& avi, std::string const& path)
    : _avi(avi),
      _path(path),
      _survey(avi),
      _place("position in the file", 0, static_cast<double>(avi.Size()), kBytes, 10, false),
      _drawn(std::min(avi.Tracks().size(), kMostTracks)),
      _reference(_drawn) {
  for (bool video : {true, false})
    for (std::size_t i = 0; i < _drawn && _reference == _drawn; ++i)
      if (avi.Tracks()[i].chunks != 0 && (!video || avi.Tracks()[i].type == "video"))
        _reference = i;
  DrawHead();
  DrawLegend();
  DrawRates();
  DrawSkew();
  _y = DrawMap(_svg, _survey.parts, _place, _y);
}

std::string Plot::TrackName(std::size_t track) const {
  return std::to_string(track) + " " + _avi.Tracks()[track].Kind();
}

std::string Plot::Document() const {
  std::string const about = "Tracks: " + std::to_string(_avi.Tracks().size()) +
                            ", packets: " + std::to_string(_survey.packets.size()) + ", " +
                            Seconds(_avi.Duration_ms()) + ", " + std::to_string(_avi.Size()) +
                            " bytes: bit rate and key frames over time, skew between tracks over "
                            "the file, and layout of the file.";
  return _svg.Document(Chart::kWidth, _y, _path, about, kStyle);
}

void Plot::DrawHead() {
  _svg.Text(24, 36, "title", Shortened(std::filesystem::path(_path).filename().string()));
  _svg.Text(24, 58, "dim",
            Seconds(_avi.Duration_ms()) + ", " + std::to_string(_avi.Size()) + " bytes, " +
                Quantity(_survey.packets.size(), "packet") + (_avi.CutOff() ? ", incomplete" : ""));
  _y = 84;
}

void Plot::DrawLegend() {
  double x = 24;
  auto const room = [&](std::string const& text) {
    double const width = 36 + Chart::kLetter * static_cast<double>(text.size());
    if (x > 24 && x + width > Chart::kWidth) x = 24, _y += 20;
    return std::exchange(x, x + width);
  };
  for (std::size_t i = 0; i < _drawn; ++i) {
    double const at = room(TrackName(i));
    _svg.Box(at, _y - 8, 14, 4, "fill" + Colour(i));
    _svg.Text(at + 20, _y, "name", TrackName(i));
  }
  if (std::size_t const more = _avi.Tracks().size() - _drawn; more != 0) {
    std::string const text = "and " + std::to_string(more) + " more tracks";
    _svg.Text(room(text), _y, "dim", text);
  }
  _y += 24;
}

void Plot::DrawRates() {
  bool const timed = _survey.duration > 0;
  double const step = RoundStep(std::max(0.1, _survey.duration / kIntervals));
  std::vector<std::vector<double>> rates(_drawn);
  double largest = 1;
  for (std::size_t i = 0; timed && i < _drawn; ++i) {
    rates[i] = BitRates(_survey, i, step);
    largest = std::max(largest, *std::max_element(rates[i].begin(), rates[i].end()));
  }
  Axis const x("time", 0, timed ? _survey.duration : 1, kTimes, 10, false);
  Axis const y("bit rate", 0, largest, kBitRates, 5, true);
  char heading[64];
  std::snprintf(heading, sizeof heading, "Bit rate (mean of each %g s) and key frames", step);
  double const keys = _y + 26;
  double gap = 8;
  for (std::size_t i = 0; i < _drawn; ++i) gap += _avi.Tracks()[i].keysKnown ? 12 : 0;
  Chart chart(_svg, _y, gap, 180, heading, x, y, timed);
  for (std::size_t i = 0; timed && i < _drawn; ++i) {
    if (_avi.Tracks()[i].chunks != 0) DrawRate(chart, i, rates[i], step);
  }
  if (timed)
    DrawKeys(chart, keys);
  else
    chart.Message(_survey.packets.empty() ? "no packets" : "the tracks have no times");
  if (timed) DrawBelow(_svg, x, chart.Bottom());
  _y = chart.Bottom() + (timed ? 64 : 28);
}

// A line that has one level per interval.
void Plot::DrawRate(Chart const& chart, std::size_t track, std::vector<double> const& rates,
                    double step) {
  std::string line = "M" + Point(chart.X(0), chart.Y(rates[0]));
  for (std::size_t i = 0; i < rates.size(); ++i) {
    if (i != 0 && rates[i] != rates[i - 1]) line += "V" + Coordinate(chart.Y(rates[i]));
    bool const level = i + 1 < rates.size() && rates[i + 1] == rates[i];
    double const end = std::min(static_cast<double>(i + 1) * step, _survey.duration);
    if (!level) line += "H" + Coordinate(chart.X(end));
  }
  _svg.Path(line, "line" + Colour(track), TrackName(track));
}

// A row of marks for each video track. Marks that would touch are drawn as one.
void Plot::DrawKeys(Chart const& chart, double top) {
  for (std::size_t i = 0; i < _drawn; ++i) {
    if (!_avi.Tracks()[i].keysKnown) continue;
    std::string marks;
    double last = 0;
    for (Survey::Packet const& packet : _survey.packets) {
      if (packet.track != i || !packet.key) continue;
      double const x = chart.X(packet.begin);
      if (x - last < 3) continue;
      marks += "M" + Point(last = x, top) + "v9";
    }
    _svg.Text(Chart::kLeft - 8, top + 8, "end dim", "key frames");
    _svg.Path(marks, "key" + Colour(i),
              TrackName(i) + ": " + std::to_string(_avi.Tracks()[i].keyChunks) + " key frames");
    top += 12;
  }
}

// Whether the chart compares a track with the reference track: text has no times of its own.
bool Plot::IsCompared(std::size_t track) const {
  avi::AviTrack const& info = _avi.Tracks()[track];
  return track != _reference && info.chunks != 0 && info.type != "text";
}

void Plot::DrawSkew() {
  std::vector<std::vector<Lead>> leads(_drawn);
  double low = 0, high = 0;
  bool any = false;
  int64 const interval = std::max<int64>(1, _avi.Size() / kIntervals);
  for (std::size_t i = 0; i < _drawn && _survey.duration > 0; ++i) {
    if (!IsCompared(i)) continue;
    any = true;
    leads[i] = Leads(_survey, i, _reference, interval);
    for (Lead const& lead : leads[i]) {
      low = std::min(low, lead.low);
      high = std::max(high, lead.high);
    }
  }
  if (high - low < 0.01) low = -0.005, high = 0.005;
  Axis const y("ahead", low, high, kLags, 4, true);
  Chart chart(_svg, _y, 0, any ? 120 : 40,
              any ? "Skew: how far a track is ahead of track " + TrackName(_reference)
                  : "Skew between tracks",
              _place, y, any);
  for (std::size_t i = 0; i < _drawn; ++i) DrawLeads(chart, i, leads[i]);
  if (!any) chart.Message("nothing to compare");
  _y = chart.Bottom() + 24;
}

// A band between the least and the greatest lead.
void Plot::DrawLeads(Chart const& chart, std::size_t track, std::vector<Lead> const& leads) {
  std::string high, low;
  for (Lead const& lead : leads) {
    double const x = chart.X(static_cast<double>(lead.offset));
    high += (high.empty() ? "M" : "L") + Point(x, chart.Y(lead.high));
    low = "L" + Point(x, chart.Y(lead.low)) + low;
  }
  if (!leads.empty()) _svg.Path(high + low + "Z", "band" + Colour(track), TrackName(track));
}

}  // namespace kestro::tool
