// Opens an input and chooses its streams.
#pragma once

#include <deque>
#include <map>
#include <string>

#include "avi/ClockAnchor.h"
#include "cli/Notice.h"
#include "media/Session.h"
#include "media/libav/Libav.h"
#include "media/libav/Patience.h"
#include "media/libav/VideoTrack.h"

namespace kestro::tool {

struct OpenedInput {
  FormatPtr format;                   // streams that are not recorded have AVDISCARD_ALL
  bool live = false;                  // delivers in its own time and cannot wait
  avi::ClockAnchor::Now at{};         // when it was opened
  std::map<int, VideoOptions> video;  // by stream
  std::deque<PacketPtr> ahead;        // packets that were read to determine the frame rate
  Notices notes;                      // streams that are left out,
  Notices findings;                   // and what the recording does not store; one line each
};

// `patience` must outlive the result. Throws Error when the input cannot be opened or recorded.
OpenedInput OpenStreams(std::string const& address, InputOptions const& options,
                        Patience& patience);

bool IsRecorded(AVStream const& stream);

// The name of a stream in messages.
std::string StreamName(std::string const& address, AVStream const& stream);

// The streams alone, for a thread that does not read them.
FormatPtr CopyStreams(AVFormatContext const& format);

}  // namespace kestro::tool
