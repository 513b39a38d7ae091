#include "avi/KeepMarker.h"

#include <cstdint>
#include <cstdio>
#include <utility>

#include "avi/JsonReader.h"

namespace kestro::avi {

static constexpr std::size_t kMostLabel = 200;
static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// The length of the UTF-8 character that a text begins with; 0 if it is invalid.
static std::size_t CharacterLength(std::string_view text) {
  auto const byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  std::uint8_t const first = byte(0);
  std::size_t const length = first < 0x80                    ? 1
                             : first >= 0xC2 && first < 0xE0 ? 2
                             : first >= 0xE0 && first < 0xF0 ? 3
                             : first >= 0xF0 && first < 0xF5 ? 4
                                                             : 0;
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  if (length < 3) return length;
  // Overlong forms, surrogates, and beyond U+10FFFF.
  bool const invalid = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) >= 0xA0) ||
                       (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) >= 0x90);
  return invalid ? 0 : length;
}

std::string KeepMarker::Label(std::string_view text) {
  std::string label;
  while (!text.empty()) {
    std::size_t const length = CharacterLength(text);
    std::string_view const character = length != 0 ? text.substr(0, length) : kReplacement;
    if (label.size() + character.size() > kMostLabel) break;
    label += character;
    text.remove_prefix(length != 0 ? length : 1);
  }
  return label;
}

static std::string Quoted(std::string const& text) {
  std::string quoted = "\"";
  for (char const c : text) {
    if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      quoted += escape;
      continue;
    }
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

static std::string Window(std::string const& from, std::string const& to) {
  return "\"window\": {\"from\": " + Quoted(from) + ", \"to\": " + Quoted(to) + "}";
}

std::string KeepMarker::Compose() const {
  Event const first = events.empty() ? Event() : events.front();
  std::string text = "{\n  \"label\": " + Quoted(first.label) +
                     ",\n  \"time\": " + Quoted(first.time) + ",\n  " + Window(from, to) +
                     ",\n  \"events\": [";
  char const* separator = "\n    ";
  for (Event const& event : events) {
    text += separator + ("{\"label\": " + Quoted(event.label)) +
            ", \"time\": " + Quoted(event.time) + ", " + Window(event.from, event.to) + "}";
    separator = ",\n    ";
  }
  return text + "\n  ]\n}\n";
}

static void ReadEvent(JsonReader& reader, KeepMarker::Event& event,
                      std::vector<KeepMarker::Event>* events) {
  reader.Object([&](std::string const& key) {
    if (key == "label") return reader.Text(event.label);
    if (key == "time") return reader.Text(event.time);
    if (key == "window")
      return reader.Object([&](std::string const& edge) {
        if (edge == "from") return reader.Text(event.from);
        if (edge == "to") return reader.Text(event.to);
        reader.Skip();
      });
    if (key != "events" || events == nullptr) return reader.Skip();
    reader.Array([&] { ReadEvent(reader, events->emplace_back(), nullptr); });
  });
}

KeepMarker KeepMarker::Parse(std::string_view text) {
  JsonReader reader(text);
  KeepMarker marker;
  Event whole;
  ReadEvent(reader, whole, &marker.events);
  if (!reader.End()) return {};
  if (marker.events.empty()) marker.events.push_back(whole);
  marker.from = std::move(whole.from);
  marker.to = std::move(whole.to);
  return marker;
}

}  // namespace kestro::avi
