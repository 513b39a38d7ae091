#include "cli/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/DidYouMean.h"

namespace kestro::tool {

Option const& Option::Required() const {
  _option->required();
  return *this;
}

Option const& Option::Needs(Option const& other) const {
  _option->needs(other._option);
  return *this;
}

Option const& Option::Excludes(Option const& other) const {
  _option->excludes(other._option);
  return *this;
}

Option const& Option::OneOf(std::vector<char const*> const& choices) const {
  std::vector<std::string> const known(choices.begin(), choices.end());
  auto const check = [known](std::string const& value) {
    if (std::find(known.begin(), known.end(), value) != known.end()) return std::string();
    std::string const meant = DidYouMean(value, known);
    return "unknown value '" + value + "'" +
           (meant.empty() ? "; choose from " + CLI::detail::join(known, ", ") : meant);
  };
  // The manual page and the completions use the description.
  _option->check(CLI::Validator(check, "{" + CLI::detail::join(known, ",") + "}"));
  return *this;
}

Option const& Option::Seekable() const {
  auto const check = [](std::string const& value) {
    return value == "-" ? "standard output is not seekable, as an AVI file must be (./- is a "
                          "file of that name)"
                        : "";
  };
  _option->check(CLI::Validator(check, ""));
  return *this;
}

Option const& Option::OnParse(std::function<void()> const& call) const {
  _option->trigger_on_parse()->each([call](std::string const&) { call(); });
  return *this;
}

Option Options::Flag(char const* names, bool& value, char const* help) {
  return Option(_app.add_flag(names, value, help));
}

Option Options::Text(char const* names, std::string& value, char const* type, char const* help) {
  return Option(_app.add_option(names, value, help)->type_name(type));
}

Option Options::Texts(char const* names, std::vector<std::string>& values, char const* type,
                      char const* help) {
  CLI::Option* const option = _app.add_option(names, values, help)->type_name(type);
  if (*names == '-') option->take_all()->expected(1)->allow_extra_args(false);
  return Option(option);
}

template <class Value, class Limit>
static Option AddNumber(CLI::App& app, char const* names, Value& value, Limit least, Limit most,
                        char const* type, char const* help) {
  return Option(
      app.add_option(names, value, help)->type_name(type)->check(CLI::Range(least, most)));
}

Option Options::Number(char const* names, int& value, int least, int most, char const* type,
                       char const* help) {
  return AddNumber(_app, names, value, least, most, type, help);
}

Option Options::Number(char const* names, unsigned& value, unsigned least, unsigned most,
                       char const* type, char const* help) {
  return AddNumber(_app, names, value, least, most, type, help);
}

Option Options::Number(char const* names, std::optional<std::uint64_t>& value, int least, int most,
                       char const* type, char const* help) {
  return AddNumber(_app, names, value, least, most, type, help);
}

void Options::Footer(std::string const& text) { _app.footer(text); }

void Options::Hide() { _app.group(""); }

}  // namespace kestro::tool
