// Opens inputs with libavformat.
#pragma once

#include <string>

#include "avi/ClockAnchor.h"
#include "base/Fraction.h"
#include "cli/Errors.h"
#include "media/libav/Libav.h"
#include "media/libav/Patience.h"

namespace kestro::tool {

// Opens a file name, an address or a device, and reads what streams it has. `rate`: what to request
// from a device, 0/1 for its default. `patience` ends every wait, also later ones, and must outlive
// the input. Sets `opened` to when the input began to deliver, if it is not null. Throws Error.
FormatPtr OpenFormat(std::string const& address, base::Fraction rate, Patience& patience,
                     avi::ClockAnchor::Now* opened = nullptr);

// Whether the address is that of a source which may come back after it was lost: a network stream
// or a device.
bool MayComeBack(std::string const& address);

// The exit code for an error of libavformat.
ExitCode ExitCodeOf(int failed);

}  // namespace kestro::tool
