// What the headers of files say, and whether it is true.
#pragma once

#include <optional>
#include <string>

#include "avi/StartTime.h"
#include "cli/Notice.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// When the file was captured, if it says so.
std::optional<avi::StartTime> ReadStart(std::string const& address, AVFormatContext const& format);

// A finding if the file is shorter than its header says.
Notices CheckSize(std::string const& path);

}  // namespace kestro::tool
