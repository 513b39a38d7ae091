// Reads texts from SRT, WebVTT and ASS files.
#pragma once

#include <string>
#include <vector>

#include "media/libav/Cue.h"

namespace kestro::tool {

// Whether the file name has a matching extension.
bool IsSubtitleFile(std::string const& path);

// Parses the content of a file. `damaged`: the number of texts that are left out. Throws Error.
std::vector<Cue> ParseSubtitles(std::string const& path, std::string const& content,
                                unsigned& damaged);

}  // namespace kestro::tool
