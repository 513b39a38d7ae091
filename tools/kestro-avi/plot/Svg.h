// Writes a picture as SVG.
#pragma once

#include <string>

namespace kestro::tool {

// Text as it stands in XML; what cannot stand there is replaced.
std::string Escaped(std::string const& text);
std::string Coordinate(double value);  // to a tenth

// Shapes look as the classes named by `look` say; a `title` is shown when one points at them.
class Svg {
 public:
  void Text(double x, double y, std::string const& look, std::string const& text);
  void Box(double x, double y, double width, double height, std::string const& look,
           std::string const& title = "");
  void Path(std::string const& data, std::string const& look, std::string const& title = "");
  // The whole document; `css` tells of the classes, "page" among them.
  std::string Document(double width, double height, std::string const& title,
                       std::string const& description, std::string const& css) const;

 private:
  void Shape(std::string const& element, std::string const& look, std::string const& title);

  std::string _shapes;
};

}  // namespace kestro::tool
