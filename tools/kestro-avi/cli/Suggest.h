// What was meant by a mistyped command line.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
class Validator;
}  // namespace CLI

namespace kestro::tool {

// A check that an option's value is one of these.
CLI::Validator OneOf(std::vector<std::string> const& choices);

// Why `app` could not parse its command line, in one line. An unknown name counts more than what
// else is wrong: it may be the cause.
std::string Explain(CLI::App const& app, CLI::ParseError const& error);

}  // namespace kestro::tool
