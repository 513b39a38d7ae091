#include "verbs/FileMarks.h"

#include <filesystem>
#include <fstream>

namespace kestro::tool {

std::vector<avi::KeepMarker::Event> ReadMarks(std::string const& recording) {
  std::string const path = recording + avi::KeepMarker::kEnding;
  std::error_code none;
  if (!std::filesystem::exists(path, none)) return {};
  std::string text;
  if (std::filesystem::is_regular_file(path, none)) {
    std::ifstream file(path, std::ios::binary);
    text.resize(avi::KeepMarker::kMostBytes);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
  }
  auto events = avi::KeepMarker::Parse(text).events;
  if (events.empty()) events.emplace_back();
  return events;
}

}  // namespace kestro::tool
