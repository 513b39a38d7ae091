// Expected bytes, written field by field.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kestro::test {

class Bytes : public std::vector<unsigned char> {
 public:
  Bytes() = default;
  explicit Bytes(std::string const& text) { Raw(text); }

  Bytes& Cc(char const* code) { return Raw(std::string(code, 4)); }
  template <class... Values>
  Bytes& U16(Values... values) {
    (Little(unsigned(values), 2), ...);
    return *this;
  }
  template <class... Values>
  Bytes& U32(Values... values) {
    (Little(unsigned(values), 4), ...);
    return *this;
  }
  Bytes& Raw(std::string const& text) {
    insert(end(), text.begin(), text.end());
    return *this;
  }
  Bytes& Zeros(std::size_t count) {
    resize(size() + count);
    return *this;
  }
  Bytes& Add(Bytes const& other) {
    insert(end(), other.begin(), other.end());
    return *this;
  }

 private:
  void Little(unsigned value, int bytes) {
    for (int i = 0; i < bytes; ++i) push_back(static_cast<unsigned char>(value >> (8 * i)));
  }
};

inline Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (Bytes const& part : parts) all.Add(part);
  return all;
}

// Where two byte strings differ, for a message that points at the field.
inline std::string Difference(std::vector<unsigned char> const& expected,
                              std::vector<unsigned char> const& actual) {
  std::size_t at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at]) ++at;
  if (at == expected.size() && at == actual.size()) return {};
  std::string text = "sizes " + std::to_string(expected.size()) + " and " +
                     std::to_string(actual.size()) + ", first difference at " + std::to_string(at);
  for (auto const* side : {&expected, &actual}) {
    text += side == &expected ? "\n  expected" : "\n  actual  ";
    for (std::size_t i = at; i < side->size() && i < at + 24; ++i) {
      char byte[4];
      std::snprintf(byte, sizeof byte, " %02x", (*side)[i]);
      text += byte;
    }
  }
  return text;
}

}  // namespace kestro::test
