#include "media/libav/Input.h"

#include "cli/Address.h"
#include "cli/Errors.h"
#include "media/libav/CueFile.h"
#include "media/libav/MediaInput.h"
#include "media/libav/PictureSeries.h"

namespace kestro::tool {

static std::unique_ptr<Input> Open(std::string const& address, InputOptions const& options) {
  if (CueFile::IsCueFile(address)) return std::make_unique<CueFile>(address, options);
  if (auto const series = SeriesName::Parse(address))
    return std::make_unique<PictureSeries>(address, *series, options);
  return std::make_unique<MediaInput>(address, options);
}

std::unique_ptr<Input> OpenInput(std::string const& address, InputOptions const& options) {
  auto const check = [&] {
    if (options.interrupted()) throw Error(kInterrupted, Hidden(address) + ": interrupted");
  };
  check();  // a signal that has come would not end the wait for the writer of a pipe
  try {
    return Open(address, options);
  } catch (Error const&) {
    check();  // the signal ended that wait with an error
    throw;
  }
}

}  // namespace kestro::tool
