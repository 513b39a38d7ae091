#include "avi/JsonReader.h"

#include <algorithm>

namespace kestro::avi {

// The next character that is not space; 0 at the end.
char JsonReader::Next() {
  _rest.remove_prefix(std::min(_rest.find_first_not_of(" \t\r\n"), _rest.size()));
  return _rest.empty() ? '\0' : _rest.front();
}

void JsonReader::Need(char wanted) {
  _good = _good && Next() == wanted && wanted != '\0';
  if (_good) _rest.remove_prefix(1);
}

// Whether an object or array, which begins when `first`, has another value.
bool JsonReader::More(char open, char close, bool first) {
  if (first) {
    Need(open);
    _good = _good && ++_depth <= kMostDepth;
  }
  if (!_good) return false;
  if (Next() == close) {
    Need(close);
    --_depth;
    return false;
  }
  if (!first) Need(',');
  return _good;
}

bool JsonReader::End() { return _good && Next() == '\0' && _rest.empty(); }

// Four hexadecimal digits.
unsigned JsonReader::Unit() {
  unsigned unit = 0;
  for (int i = 0; i < 4 && _good; ++i) {
    static constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
    std::size_t const at = _rest.empty() ? kDigits.npos : kDigits.find(_rest.front());
    _good = at != kDigits.npos;
    if (!_good) return 0;
    unit = unit * 16 + static_cast<unsigned>(at < 16 ? at : at - 6);
    _rest.remove_prefix(1);
  }
  return unit;
}

static void AddUtf8(std::string& text, unsigned code) {
  auto const add = [&text](unsigned byte) { text += static_cast<char>(byte); };
  if (code < 0x80) return add(code);
  if (code >= 0x10000) add(0xF0 | code >> 18);
  if (code >= 0x10000) add(0x80 | (code >> 12 & 0x3F));
  if (code >= 0x800 && code < 0x10000) add(0xE0 | code >> 12);
  add(code >= 0x800 ? 0x80 | (code >> 6 & 0x3F) : 0xC0 | code >> 6);
  add(0x80 | (code & 0x3F));
}

// What follows a backslash.
void JsonReader::Escape(std::string& text) {
  static constexpr std::string_view kLetters = "\"\\/bfnrt", kMeanings = "\"\\/\b\f\n\r\t";
  char const letter = _rest.empty() ? '\0' : _rest.front();
  _rest.remove_prefix(_rest.empty() ? 0 : 1);
  std::size_t const at = letter == '\0' ? kLetters.npos : kLetters.find(letter);
  if (at != kLetters.npos) {
    text += kMeanings[at];
    return;
  }
  _good = _good && letter == 'u';
  unsigned code = Unit();
  bool const first = code >= 0xD800 && code < 0xDC00;
  if (first && _rest.substr(0, 2) == "\\u") {
    _rest.remove_prefix(2);
    unsigned const second = Unit();
    _good = _good && second >= 0xDC00 && second < 0xE000;
    code = 0x10000 + ((code - 0xD800) << 10) + (second - 0xDC00);
  } else {
    _good = _good && (code < 0xD800 || code >= 0xE000);
  }
  if (_good) AddUtf8(text, code);
}

void JsonReader::Text(std::string& text) {
  text.clear();
  Need('"');
  while (_good) {
    auto const special = [](char c) {
      return c == '"' || c == '\\' || static_cast<unsigned char>(c) < ' ';
    };
    auto const end = std::find_if(_rest.begin(), _rest.end(), special);
    auto const length = static_cast<std::size_t>(end - _rest.begin());
    text += _rest.substr(0, length);
    _rest.remove_prefix(length);
    _good = !_rest.empty() && _rest.front() >= ' ';
    if (!_good) return;
    bool const ends = _rest.front() == '"';
    _rest.remove_prefix(1);
    if (ends) return;
    Escape(text);
  }
}

// A number, true, false or null: not checked further.
void JsonReader::SkipWord() {
  std::size_t const length =
      std::min(_rest.find_first_not_of("+-.0123456789Eabcdefghijklmnopqrstuvwxyz"), _rest.size());
  _good = length != 0;
  _rest.remove_prefix(length);
}

void JsonReader::Skip() {
  if (!_good) return;
  std::string ignored;
  switch (Next()) {
    case '{':
      return Object([this](std::string const&) { Skip(); });
    case '[':
      return Array([this] { Skip(); });
    case '"':
      return Text(ignored);
    default:
      return SkipWord();
  }
}

}  // namespace kestro::avi
