// Writes pictures as SVG.
#pragma once

#include <string>

namespace kestro::tool {

// Escapes text for XML, and replaces characters that XML does not allow.
std::string Escaped(std::string const& text);
std::string Coordinate(double value);  // rounded to a tenth

// `look`: CSS classes of a shape; `title`: its tooltip.
class Svg {
 public:
  void Text(double x, double y, std::string const& look, std::string const& text);
  void Box(double x, double y, double width, double height, std::string const& look,
           std::string const& title = "");
  void Path(std::string const& data, std::string const& look, std::string const& title = "");
  // The whole document; `css` defines the classes, including "page".
  std::string Document(double width, double height, std::string const& title,
                       std::string const& description, std::string const& css) const;

 private:
  void Shape(std::string const& element, std::string const& look, std::string const& title);

  std::string _shapes;
};

}  // namespace kestro::tool
