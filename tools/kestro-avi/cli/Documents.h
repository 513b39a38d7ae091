// JSON documents, and the loop of commands that take several files.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kestro::tool {

using Json = nlohmann::ordered_json;

// A document as text. Bytes that are not UTF-8, as in a file name, are replaced.
std::string DocumentText(Json const& json);

// Calls `process` for each file and returns the highest exit code. `process` returns the file's
// exit code, and writes text or, with `json`, adds to the array, which is written as one document
// at the end. If it throws an Error, that is reported and the next file follows.
int ForEachFile(std::vector<std::string> const& files, bool json,
                std::function<int(std::string const& path, Json& array)> const& process);

}  // namespace kestro::tool
