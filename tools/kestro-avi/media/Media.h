// What the tool takes from libavformat and its kin, which a module of its own brings: see
// MediaModule.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "avi/AviTrack.h"
#include "media/FrameOrder.h"
#include "media/Output.h"
#include "media/Session.h"

namespace kestro::tool {

struct ContainerTrack {
  std::string name;  // for messages
  avi::AviTrack const* track;
  FrameOrder const* order;  // kept until Finish; null where frames are shown as they come
};

// All throw Error.
class KESTRO_API Media {
 public:
  virtual ~Media() = default;

  // Opens file names, addresses and devices, whatever they hold. `timeline` says what part is
  // wanted.
  virtual std::unique_ptr<Session> OpenInputs(std::vector<std::string> const& addresses,
                                              InputOptions const& options,
                                              Timeline const& timeline) = 0;

  // Whether a file's ending names a container.
  virtual bool KnowsContainer(std::string const& path) = 0;
  // For video; null where its frames cannot be looked at.
  virtual std::unique_ptr<FrameParser> NewFrameParser(avi::AviTrack const& track) = 0;
  virtual std::unique_ptr<Output> NewContainer(std::string const& path,
                                               std::vector<ContainerTrack> const& tracks) = 0;
};

// The module's one entry. Null for a tool of another version.
inline constexpr char kMediaEntry[] = "kestro_media";
using MediaEntry = Media*(char const* version);

}  // namespace kestro::tool
