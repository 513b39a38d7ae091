// Measures whole programs: the tool, and those that people use instead.
#pragma once

#include <vector>

#include "Bench.h"

namespace kestro::bench {

// "tool/start": `kestro-avi --help`, compared with `ffprobe -version`.
// "tool/record": a minute of H.264 at 24 Mbit/s with PCM from Matroska to AVI, both on tmpfs,
// compared with ffmpeg and gst-launch. Cases and contenders whose programs are missing are left
// out.
std::vector<Case> ToolCases();

}  // namespace kestro::bench
