#include "media/TrackChoice.h"

#include <algorithm>

#include "cli/Errors.h"

namespace kestro::tool {

static constexpr char const* kKinds[] = {"video", "audio", "text"};

std::string InputTrack::Text() const {
  return std::to_string(number) + ": " + kKinds[kind] + (language.empty() ? "" : " ") + language;
}

// A short number; none for anything else.
static std::optional<std::size_t> ReadNumber(std::string const& text) {
  bool const number = !text.empty() && text.size() <= 4 &&
                      text.find_first_not_of("0123456789") == std::string::npos;
  return number ? std::optional<std::size_t>(std::stoul(text)) : std::nullopt;
}

static std::optional<InputTrack::Kind> ReadKind(std::string const& text) {
  for (int i = 0; i < 3; ++i)
    if (text == kKinds[i] || text == std::string(1, kKinds[i][0]))
      return static_cast<InputTrack::Kind>(i);
  return std::nullopt;
}

static bool IsLanguage(std::string const& text) {
  return (text.size() == 2 || text.size() == 3) &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

// Splits at the next colon; the rest stays in `text`.
static std::string NextPart(std::string& text) {
  std::size_t const colon = std::min(text.find(':'), text.size());
  std::string part = text.substr(0, colon);
  text.erase(0, colon + 1);
  return part;
}

TrackChoice TrackChoice::Parse(std::string const& text) {
  TrackChoice choice;
  choice._text = text;
  std::string rest = text;
  auto const input = ReadNumber(NextPart(rest));
  std::string part = NextPart(rest);
  if ((choice._kind = ReadKind(part))) part = NextPart(rest);
  choice._number = ReadNumber(part);
  if (!choice._number && IsLanguage(part)) choice._language = part;
  bool const named = choice._number || !choice._language.empty();
  bool const valid = input && rest.empty() && (named || (choice._kind && part.empty()));
  if (!valid)
    throw Error(kUsage, "--map: \"" + text +
                            "\" is not INPUT:TRACK (0:1, 0:a, 0:a:1, 0:eng, 0:a:eng; inputs and "
                            "tracks count from 0)");
  choice._input = *input;
  return choice;
}

bool TrackChoice::Matches(InputTrack const& track) const {
  if (_kind && *_kind != track.kind) return false;
  if (_number && *_number != (_kind ? track.numberOfKind : track.number)) return false;
  return _language.empty() || _language == track.language;
}

std::vector<bool> Chosen(std::vector<TrackChoice> const& choices,
                         std::vector<InputTrack> const& tracks, std::string const& input) {
  std::vector<bool> chosen(tracks.size(), choices.empty());
  for (TrackChoice const& choice : choices) {
    bool any = false;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      if (!choice.Matches(tracks[i])) continue;
      any = chosen[i] = true;
    }
    if (any) continue;
    std::string list;
    for (InputTrack const& track : tracks) list += (list.empty() ? "" : ", ") + track.Text();
    throw Error(kUsage, "--map " + choice.Text() + ": " + input + " has no such track (it has " +
                            list + ")");
  }
  return chosen;
}

}  // namespace kestro::tool
