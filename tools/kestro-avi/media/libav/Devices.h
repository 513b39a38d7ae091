// The input devices of libavdevice.
#pragma once

#include <string>

#include "media/libav/Libav.h"

namespace kestro::tool {

// Removes the type of a device from an address such as "v4l2:/dev/video0" and returns it; null for
// other addresses. Loads libavdevice only if the address may name a device: its many libraries take
// longer to load than all others together.
AVInputFormat const* TakeDevice(std::string& url);

}  // namespace kestro::tool
