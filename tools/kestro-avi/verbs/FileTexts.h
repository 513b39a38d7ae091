// The texts in a recording, such as marks of events.
#pragma once

#include <vector>

#include "avi/AviFile.h"
#include "media/TimedText.h"

namespace kestro::tool {

// All texts in the order of their times. Plain texts have no end and get that of the frame that
// they precede as both times.
std::vector<TimedText> ReadTexts(avi::AviFile& avi);

}  // namespace kestro::tool
