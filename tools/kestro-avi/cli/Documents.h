// JSON documents, and the loop of commands that take several files.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kestro::tool {

using Json = nlohmann::ordered_json;

// As text: a document, and one line. Bytes that are not UTF-8, as in a file name, are replaced.
std::string DocumentText(Json const& json);
std::string LineText(Json const& json);

// Calls `process` for each file, until it is interrupted, and returns the highest exit code.
// `process` returns the file's exit code, and writes text or adds to the array, which becomes the
// answer to --json. If it throws an Error, that is reported and the next file follows.
int ForEachFile(std::vector<std::string> const& files,
                std::function<int(std::string const& path, Json& array)> const& process);

}  // namespace kestro::tool
