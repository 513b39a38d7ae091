#include "plot/Svg.h"

#include <cmath>
#include <cstdio>

#include "avi/JsonReader.h"
#include "cli/Documents.h"

namespace kestro::tool {

std::string Escaped(std::string const& text) {
  // The JSON writer replaces bytes that are not UTF-8.
  std::string mended;
  avi::JsonReader(LineText(text)).Text(mended);
  std::string escaped;
  for (std::size_t i = 0; i < mended.size(); ++i) {
    char const c = mended[i];
    bool const none = mended.compare(i, 3, "\xEF\xBF\xBE") == 0 ||  // not characters
                      mended.compare(i, 3, "\xEF\xBF\xBF") == 0;
    if (none) i += 2;
    if (none || static_cast<unsigned char>(c) < 0x20)
      escaped += "\xEF\xBF\xBD";
    else if (c == '&')
      escaped += "&amp;";
    else if (c == '<')
      escaped += "&lt;";
    else if (c == '>')
      escaped += "&gt;";
    else if (c == '"')
      escaped += "&quot;";
    else
      escaped += c;
  }
  return escaped;
}

std::string Coordinate(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", std::round(value * 10) / 10 + 0.0);
  return text;
}

void Svg::Text(double x, double y, std::string const& look, std::string const& text) {
  _shapes += "<text x=\"" + Coordinate(x) + "\" y=\"" + Coordinate(y) + "\" class=\"" + look +
             "\">" + Escaped(text) + "</text>\n";
}

void Svg::Box(double x, double y, double width, double height, std::string const& look,
              std::string const& title) {
  Shape("rect x=\"" + Coordinate(x) + "\" y=\"" + Coordinate(y) + "\" width=\"" +
            Coordinate(width) + "\" height=\"" + Coordinate(height) + "\"",
        look, title);
}

void Svg::Path(std::string const& data, std::string const& look, std::string const& title) {
  if (!data.empty()) Shape("path d=\"" + data + "\"", look, title);
}

void Svg::Shape(std::string const& element, std::string const& look, std::string const& title) {
  _shapes += "<" + element + " class=\"" + look + "\"";
  if (title.empty())
    _shapes += "/>\n";
  else
    _shapes +=
        "><title>" + Escaped(title) + "</title></" + element.substr(0, element.find(' ')) + ">\n";
}

std::string Svg::Document(double width, double height, std::string const& title,
                          std::string const& description, std::string const& css) const {
  std::string const size = Coordinate(width) + "\" height=\"" + Coordinate(height) + "\"";
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + " viewBox=\"0 0 " +
         Coordinate(width) + " " + Coordinate(height) +
         "\" role=\"img\" aria-labelledby=\"title desc\">\n<title id=\"title\">" + Escaped(title) +
         "</title>\n<desc id=\"desc\">" + Escaped(description) + "</desc>\n<style>" + css +
         "</style>\n<rect width=\"100%\" height=\"100%\" class=\"page\"/>\n" + _shapes + "</svg>\n";
}

}  // namespace kestro::tool
