// Explains errors in the command line.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
class Validator;
}  // namespace CLI

namespace kestro::tool {

// Checks that an option's value is one of these.
CLI::Validator OneOf(std::vector<std::string> const& choices);

// Explains in one line why `app` could not parse its command line. An unknown name is reported
// first, because it may cause the other errors.
std::string Explain(CLI::App const& app, CLI::ParseError const& error);

}  // namespace kestro::tool
