// Reads JSON from left to right.
#pragma once

#include <string>
#include <string_view>

namespace kestro::avi {

// Reads values of known types and skips others. After an error, all functions do nothing, and End
// returns false.
//
//   JsonReader reader(text);
//   reader.Object([&](std::string const& key) {
//     if (key == "label") reader.Text(label); else reader.Skip();
//   });
//   if (!reader.End()) ...
class JsonReader {
 public:
  explicit JsonReader(std::string_view text) : _rest(text) {}

  // Calls a function for each member or element, which must read or skip the value.
  template <class Member>
  void Object(Member member) {
    for (bool first = true; More('{', '}', first); first = false) {
      std::string key;
      Text(key);
      Need(':');
      if (_good) member(key);
    }
  }
  template <class Element>
  void Array(Element element) {
    for (bool first = true; More('[', ']', first); first = false) element();
  }
  void Text(std::string& text);
  void Skip();
  bool End();  // whether the text was read completely, without an error

 private:
  static constexpr int kMostDepth = 16;

  bool More(char open, char close, bool first);
  char Next();
  void Need(char wanted);
  void SkipWord();
  void Escape(std::string& text);
  unsigned Unit();

  std::string_view _rest;
  int _depth = 0;
  bool _good = true;
};

}  // namespace kestro::avi
