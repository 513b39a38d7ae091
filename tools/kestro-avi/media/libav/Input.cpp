#include "media/libav/Input.h"

#include "media/libav/CueFile.h"
#include "media/libav/MediaInput.h"

namespace kestro::tool {

std::unique_ptr<Input> OpenInput(std::string const& address, InputOptions const& options,
                                 Timeline& timeline) {
  if (CueFile::IsCueFile(address)) return std::make_unique<CueFile>(address, options, timeline);
  return std::make_unique<MediaInput>(address, options, timeline);
}

}  // namespace kestro::tool
