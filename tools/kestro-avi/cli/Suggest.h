// Explains errors in the command line.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
class Validator;
}  // namespace CLI

namespace kestro::tool {

// Checks that an option's value is not empty, as that of an unset shell variable is.
CLI::Validator NotEmpty();

// Explains in one line why `app` could not parse its command line. An unknown name is reported
// first, because it may cause the other errors.
std::string Explain(CLI::App const& app, CLI::ParseError const& error);

}  // namespace kestro::tool
