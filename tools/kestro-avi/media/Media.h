// The interface of the media module, which uses libavformat and related libraries: see
// MediaModule.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "avi/AviTrack.h"
#include "media/FrameChecker.h"
#include "media/FrameOrder.h"
#include "media/Output.h"
#include "media/Session.h"

namespace kestro::tool {

struct ContainerTrack {
  std::string name;  // used in messages
  avi::AviTrack const* track;
  FrameOrder const* order;  // must live until Finish; null when frames are shown in file order
};

// All functions throw Error.
class KESTRO_API Media {
 public:
  virtual ~Media() = default;

  // Opens file names, addresses and devices. `selection`: the part to record.
  virtual std::unique_ptr<Session> OpenInputs(std::vector<std::string> const& addresses,
                                              InputOptions const& options,
                                              Selection const& selection) = 0;

  // Whether a file name has the extension of a container.
  virtual bool KnowsContainer(std::string const& path) = 0;
  // A parser for a video track; null if there is none for its codec.
  virtual std::unique_ptr<FrameParser> NewFrameParser(avi::AviTrack const& track) = 0;
  // For a video track.
  virtual std::unique_ptr<FrameChecker> NewFrameChecker(avi::AviTrack const& track) = 0;
  virtual std::unique_ptr<Output> NewContainer(std::string const& path,
                                               std::vector<ContainerTrack> const& tracks) = 0;
};

// The only symbol that the module exports. Returns null if the tool has another version.
inline constexpr char kMediaEntry[] = "kestro_media";
using MediaEntry = Media*(char const* version);

}  // namespace kestro::tool
