// Reads all texts of a file.
#pragma once

#include <string>
#include <vector>

#include "media/libav/SubtitleDecoder.h"

namespace kestro::tool {

// Whether the file name has the extension of SRT, WebVTT or ASS.
bool IsSubtitleFile(std::string const& path);

// Parses the content of a file. `damaged`: the number of texts that are left out. Throws Error.
std::vector<Cue> ParseSubtitles(std::string const& path, std::string const& content,
                                unsigned& damaged);

// Reads the texts of one stream of a container. Stops when interrupted. Throws Error.
std::vector<Cue> ReadSubtitles(std::string const& path, int stream, SubtitleDecoder& decoder,
                               bool (*interrupted)());

}  // namespace kestro::tool
