// Declares the options of a command.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kestro::tool {

// An option of a command. A handle, valid as long as the command.
class Option {
 public:
  explicit Option(CLI::Option* option) : _option(option) {}
  Option const& Required() const;
  Option const& Needs(Option const& other) const;
  Option const& Excludes(Option const& other) const;
  Option const& OneOf(std::vector<char const*> const& choices) const;
  // Refuses "-" for an output: an AVI file must be seekable.
  Option const& Seekable() const;
  // Calls the function as soon as the option is parsed.
  Option const& OnParse(std::function<void()> const& call) const;

 private:
  CLI::Option* _option;
};

// The options of a command, in the order of its help. The variables must outlive the command. Only
// the source file knows the command-line library: its templates would make each command larger.
class Options {
 public:
  explicit Options(CLI::App& app) : _app(app) {}

  Option Flag(char const* names, bool& value, char const* help);
  // `type`: what the help shows for the value.
  Option Text(char const* names, std::string& value, char const* type, char const* help);
  // An option that may be repeated, or all arguments without an option.
  Option Texts(char const* names, std::vector<std::string>& values, char const* type,
               char const* help);
  Option Number(char const* names, int& value, int least, int most, char const* type,
                char const* help);
  Option Number(char const* names, unsigned& value, unsigned least, unsigned most, char const* type,
                char const* help);
  Option Number(char const* names, std::optional<std::uint64_t>& value, int least, int most,
                char const* type, char const* help);
  // The text after the options in the help. It begins with the examples.
  void Footer(std::string const& text);
  void Hide();  // the command, from the help of the program

 private:
  CLI::App& _app;
};

}  // namespace kestro::tool
