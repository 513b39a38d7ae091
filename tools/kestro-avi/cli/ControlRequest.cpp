#include "cli/ControlRequest.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "cli/DidYouMean.h"
#include "cli/Errors.h"
#include "cli/Text.h"

namespace kestro::tool {

static constexpr struct {
  char const* name;
  ControlRequest::Kind kind;
  std::size_t least, most;  // words after the name
  char const *usage, *text;
} kRequests[] = {
    {"event", ControlRequest::kEvent, 1, 3, "event LABEL [BEFORE AFTER]",
     "protect what was recorded BEFORE and AFTER this moment, or record it"},
    {"split", ControlRequest::kSplit, 0, 0, "split", "start a new file with the next key frame"},
    {"status", ControlRequest::kStatus, 0, 0, "status", "the state of the recording"},
    {"stop", ControlRequest::kStop, 0, 0, "stop", "end the recording"},
    {"unprotect", ControlRequest::kUnprotect, 1, 1, "unprotect FILE", "allow to delete a file"},
    {"help", ControlRequest::kHelp, 0, 0, "help", "this list"},
};

char const* ControlRequest::Fault(std::string_view line) {
  if (line.size() > kLongestLine) return "the line is longer than 4096 bytes";
  if (line.find('\0') != line.npos) return "the line has a zero byte";
  try {
    static_cast<void>(Json(line).dump());
  } catch (Json::exception const&) {
    return "the line is not UTF-8";
  }
  return nullptr;
}

// Takes a quoted word, without its opening quote, from the line.
static std::string TakeQuoted(std::string_view& line) {
  std::string word;
  while (!line.empty() && line.front() != '"') {
    if (line.front() == '\\') {
      line.remove_prefix(1);
      if (line.empty() || (line.front() != '"' && line.front() != '\\'))
        throw Error(kUsage, "in quotes, only a quote or a backslash may follow a backslash");
    }
    word += line.front();
    line.remove_prefix(1);
  }
  if (line.empty()) throw Error(kUsage, "a quote is missing at the end");
  line.remove_prefix(1);
  if (!line.empty() && line.front() != ' ')
    throw Error(kUsage, "a space must follow the closing quote");
  return word;
}

static std::vector<std::string> Words(std::string_view line) {
  std::vector<std::string> words;
  for (;;) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    if (line.empty()) return words;
    if (line.front() == '"') {
      line.remove_prefix(1);
      words.push_back(TakeQuoted(line));
      continue;
    }
    std::size_t const end = std::min(line.find(' '), line.size());
    words.emplace_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

ControlRequest ControlRequest::Parse(std::string_view line) {
  if (char const* const fault = Fault(line)) throw Error(kUsage, fault);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  std::vector<std::string> const words = Words(line);
  if (words.empty()) throw Error(kUsage, "the line is empty");
  auto const known = std::find_if(std::begin(kRequests), std::end(kRequests),
                                  [&](auto const& request) { return request.name == words[0]; });
  if (known == std::end(kRequests)) {
    std::vector<std::string> names;
    for (auto const& request : kRequests) names.emplace_back(request.name);
    throw Error(kUsage, "unknown request '" + words[0] + "'" + DidYouMean(words[0], names));
  }
  std::size_t const values = words.size() - 1;
  if (values < known->least || values > known->most || values == 2)
    throw Error(kUsage, std::string("the request is: ") + known->usage);
  ControlRequest request;
  request.kind = known->kind;
  if (values > 0) request.text = words[1];
  if (values > 2)
    request.times = {ParseTime_ns("BEFORE", words[2]), ParseTime_ns("AFTER", words[3])};
  return request;
}

Json ControlRequest::Help() {
  Json help;
  for (auto const& request : kRequests) help[request.usage] = request.text;
  return help;
}

}  // namespace kestro::tool
