#include "recorder/FinishedFile.h"

#include "avi/AviFile.h"
#include "avi/Error.h"
#include "avi/Text.h"
#include "recorder/Storage.h"

namespace kestro::record {

static std::unique_ptr<base::IO> Reopen(std::string const& path, RecorderOptions const& options) {
  Storage system;
  return (options.storage != nullptr ? *options.storage : system).Open(path, "rb");
}

// Not all that was taken is in the file when the device failed, or was full and the last packets
// made room for the index.
static void CountKept(Event& closed, std::unique_ptr<base::IO> file) try {
  closed.packets = 0;
  closed.duration_ns = 0;
  avi::AviFile const avi(std::move(file), closed.path);
  for (avi::AviTrack const& track : avi.Tracks()) closed.packets += track.chunks;
  closed.duration_ns = avi.Duration_ms() * 1000000;
} catch (avi::Error const&) {
}

void Conclude(FinishedFile const& file, RecorderOptions const& options,
              std::function<void(Event)> const& report) {
  Event closed{Event::kClosed, file.path, {}, file.packets, 0, file.duration_ns, file.complete};
  auto io = file.packets != 0 ? Reopen(file.path, options) : nullptr;
  for (std::string const& text : file.warnings) report({Event::kWarning, file.path, text});
  if (io != nullptr) {
    closed.bytes = static_cast<std::uint64_t>(io->Size());
    std::string packets = avi::Quantity(file.packets, "packet");
    if (!file.complete) {
      CountKept(closed, std::move(io));
      packets = "kept " + std::to_string(closed.packets) + " of " + packets;
    }
    closed.text = file.path + ": " + packets + ", " + avi::Seconds(closed.duration_ns / 1000000) +
                  ", " + avi::ByteCount(closed.bytes);
    report(closed);
    if (closed.bytes > options.segments.size)
      report({Event::kWarning, file.path,
              file.path + ": is larger than " + avi::ByteCount(options.segments.size) +
                  ": no key frame came in time"});
  }
  for (std::string const& text : file.errors) report({Event::kError, file.path, text});
}

}  // namespace kestro::record
