// JSON documents, and what the verbs over several files have in common.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kestro::tool {

using Json = nlohmann::ordered_json;

// A document as text. What is not UTF-8, such as a file's name, is mended.
std::string DocumentText(Json const& json);

// Tells of one file after the other; an Error is reported and ends its file only. `tell` returns
// the file's exit code and writes about it or, with `json`, adds to the array from which one
// document is written at the end. Returns the worst exit code.
int TellOfEach(std::vector<std::string> const& files, bool json,
               std::function<int(std::string const& path, Json& array)> const& tell);

}  // namespace kestro::tool
