// Which tracks of the inputs to record (--map).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kestro::tool {

// A track of an input, as far as it can be chosen.
struct InputTrack {
  enum Kind { kVideo, kAudio, kText } kind;
  std::size_t number;        // in the input, as in messages
  std::size_t numberOfKind;  // among the tracks of its kind
  std::string language;      // as the container has it, such as "eng"; empty: unknown

  std::string Text() const;  // for messages: "1: audio eng"
};

// One --map: the input's number, then the tracks: a number, a kind, a kind with a number, a
// language, or a kind with a language.
class TrackChoice {
 public:
  // Parses "0:1", "0:a", "0:a:1", "0:eng" or "0:a:eng". Throws Error.
  static TrackChoice Parse(std::string const& text);

  std::size_t Input() const { return _input; }
  std::string const& Text() const { return _text; }
  bool Matches(InputTrack const& track) const;

 private:
  std::string _text;
  std::size_t _input = 0;
  std::optional<InputTrack::Kind> _kind;
  std::optional<std::size_t> _number;  // of the kind if there is one
  std::string _language;
};

// By track: whether a choice matches it. Without choices, all do. Throws an Error that lists the
// tracks for a choice that matches none. `input`: used in the message.
std::vector<bool> Chosen(std::vector<TrackChoice> const& choices,
                         std::vector<InputTrack> const& tracks, std::string const& input);

}  // namespace kestro::tool
