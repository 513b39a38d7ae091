// The exit codes of the tool, and the exception that its commands throw.
#pragma once

#include "avi/Error.h"

namespace kestro::tool {

using avi::Error;
using avi::ExitCode;
using avi::kFindings;
using avi::kInterrupted;
using avi::kIo;
using avi::kOk;
using avi::kUnusable;
using avi::kUsage;

}  // namespace kestro::tool
