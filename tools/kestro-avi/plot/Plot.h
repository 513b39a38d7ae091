// A picture of an AVI file: bit rate, key frames, skew between tracks, and what lies where.
#pragma once

#include <string>
#include <vector>

#include "plot/Chart.h"
#include "plot/Survey.h"

namespace kestro::tool {

// Usage: Plot(avi, path).Document(), an SVG document for light and dark pages. However long the
// recording is, it stays small: the data are gathered into stretches.
class Plot {
 public:
  Plot(avi::AviFile& avi, std::string const& path);
  std::string Document() const;

 private:
  void Head();
  void Legend();
  void Rates();
  void Keys(Chart const& chart, double top);
  void Skew();
  void DrawLeads(Chart const& chart, std::size_t track, std::vector<Lead> const& leads);
  bool Compared(std::size_t track) const;
  std::string TrackName(std::size_t track) const;

  avi::AviFile const& _avi;
  std::string const _path;
  Survey const _survey;
  Axis const _place;       // of the lower two fields
  std::size_t _drawn;      // tracks; the others are too many
  std::size_t _reference;  // the track that the others are compared with
  Svg _svg;
  double _y = 0;  // drawn down to here
};

}  // namespace kestro::tool
