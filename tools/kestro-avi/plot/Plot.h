// Draws a picture of an AVI file: bit rate, key frames, skew between tracks, and layout.
#pragma once

#include <string>
#include <vector>

#include "plot/Chart.h"
#include "plot/Survey.h"

namespace kestro::tool {

// Plot(avi, path).Document() is an SVG document for light and dark pages. It stays small for long
// recordings, because the data is combined into intervals.
class Plot {
 public:
  Plot(avi::AviFile& avi, std::string const& path);
  std::string Document() const;

 private:
  void DrawHead();
  void DrawLegend();
  void DrawRates();
  void DrawRate(Chart const& chart, std::size_t track, std::vector<double> const& rates,
                double step);
  void DrawKeys(Chart const& chart, double top);
  void DrawSkew();
  void DrawLeads(Chart const& chart, std::size_t track, std::vector<Lead> const& leads);
  bool IsCompared(std::size_t track) const;
  std::string TrackName(std::size_t track) const;

  avi::AviFile const& _avi;
  std::string const _path;
  Survey const _survey;
  Axis const _place;       // horizontal axis of the lower two charts
  std::size_t _drawn;      // number of tracks that are drawn
  std::size_t _reference;  // the track that the others are compared with
  Svg _svg;
  double _y = 0;  // bottom of what is drawn
};

}  // namespace kestro::tool
