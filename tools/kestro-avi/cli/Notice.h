// A message with its meaning for programs.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kestro::tool {

// People read the text, programs the event with its fields.
struct Notice {
  // A number or a text.
  struct Field {
    template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
    Field(char const* name, Integer value) : key(name), number(static_cast<std::int64_t>(value)) {}
    Field(char const* name, std::string value) : key(name), text(std::move(value)), isText(true) {}

    char const* key;
    std::int64_t number = 0;
    std::string text;
    bool isText = false;
  };

  // NOLINTNEXTLINE(google-explicit-constructor): a text alone is a notice
  Notice(std::string line) : text(std::move(line)) {}
  Notice(std::string line, char const* what, std::vector<Field> details)
      : text(std::move(line)), event(what), fields(std::move(details)) {}

  std::string text;             // one line
  char const* event = nullptr;  // such as "gap"; null: there is only the text
  std::vector<Field> fields;
  bool reported = false;  // programs got it when it happened
};

using Notices = std::vector<Notice>;

inline void Append(Notices& list, Notices const& more) {
  list.insert(list.end(), more.begin(), more.end());
}

inline std::int64_t Ms(std::int64_t time_ns) { return time_ns / 1000000; }

}  // namespace kestro::tool
