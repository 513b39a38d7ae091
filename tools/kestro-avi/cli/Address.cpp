#include "cli/Address.h"

#include <algorithm>
#include <cctype>

namespace kestro::tool {

static constexpr char kStars[] = "***";
static constexpr char kSpace[] = " \t\r\n";

// Hides "user:password@" at this place. The host ends at the first of "/?#"; if what follows a
// colon there is no port, the password contains such a character.
static void HideUser(std::string& text, std::size_t begin) {
  std::size_t const end = std::min(text.find_first_of(kSpace, begin), text.size());
  std::size_t const host = std::min(text.find_first_of("/?#", begin), end);
  std::string const server = text.substr(begin, host - begin);
  std::size_t const colon = server.rfind(':');
  std::size_t at = server.rfind('@');
  if (at == server.npos && colon != server.npos && server.front() != '[' &&
      server.find_first_not_of("0123456789", colon + 1) != server.npos)
    at = text.substr(begin, end - begin).rfind('@');
  if (at != server.npos) text.replace(begin, at, kStars);
}

// Hides "user:password@" in addresses without the slashes, which libavformat opens too:
// "rtsp:user:password@host".
static void HideUserWithoutSlashes(std::string& text) {
  for (std::size_t at = text.find('@'); at != text.npos; at = text.find('@', at + 1)) {
    std::size_t const space = text.find_last_of(kSpace, at);
    std::size_t const word = space == text.npos ? 0 : space + 1;
    std::size_t const begin = std::min(text.find(':', word), at) + 1;
    bool const slashes = text.compare(begin, 2, "//") == 0;
    if (slashes || begin > at || text.find(':', begin) > at) continue;
    std::size_t const last = text.rfind('@', text.find_first_of("/?# \t\r\n", at));
    text.replace(begin, last - begin, kStars);
    at = begin + sizeof kStars - 1;
  }
}

static bool IsSecret(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  auto const has = [&name](char const* word) { return name.find(word) != name.npos; };
  return has("pass") || has("pwd") || has("token") || has("secret") || has("key") || has("auth") ||
         has("sig");
}

// Hides values of "name=value" from this place on.
static void HideValues(std::string& text, std::size_t at) {
  for (at = text.find('=', at); at != text.npos; at = text.find('=', at + 1)) {
    std::size_t const before = text.find_last_of("?&;/ ", at);
    std::size_t const name = before == text.npos ? 0 : before + 1;
    if (!IsSecret(text.substr(name, at - name))) continue;
    std::size_t const end = std::min(text.find_first_of("&;# \t\r\n", at), text.size());
    text.replace(at + 1, end - at - 1, kStars);
  }
}

std::string Hidden(std::string text) {
  HideUserWithoutSlashes(text);
  std::size_t const first = text.find("://");
  if (first == text.npos) return text;
  for (std::size_t at = first; at != text.npos; at = text.find("://", at + 3))
    HideUser(text, at + 3);
  HideValues(text, first);
  return text;
}

}  // namespace kestro::tool
