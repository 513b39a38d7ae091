#include "recorder/FinishedFile.h"

#include <cerrno>
#include <cstring>

#include "avi/AviFile.h"
#include "avi/Error.h"
#include "avi/Hashes.h"
#include "avi/Text.h"
#include "recorder/StorageOf.h"

namespace kestro::record {

// Returns the reason when it fails, else an empty text.
static std::string MakeOrdinary(FinishedFile const& file, RecorderOptions const& options) try {
  auto const io = StorageOf(options).Open(file.path, "r+b");
  if (io == nullptr) return std::strerror(errno);
  return OrdinaryClose(*io, file.index).Run(StorageOf(options).Free(file.path));
} catch (avi::Error const& error) {
  return error.what();
}

static void FinishIndex(FinishedFile const& file, RecorderOptions const& options,
                        std::function<void(Event)> const& report) {
  if (file.index.at == 0) return;
  bool const makeOrdinary = options.sync.ordinary && file.complete;
  std::string const reason = makeOrdinary ? MakeOrdinary(file, options) : "";
  if (!reason.empty())
    report(
        {Event::kNote, file.path, file.path + ": has its index before the data only: " + reason});
  if (file.index.full.empty()) return;
  std::string const reach = avi::Seconds(file.index.reach_ns / 1000000);
  std::string const more = "; reserve more space for a longer index";
  if (makeOrdinary && reason.empty())
    report({Event::kNote, file.path,
            file.path + ": the index before the data was full at " + reach +
                ": later data was not safe until the file was closed" + more});
  else
    report({Event::kWarning, file.path,
            file.index.full + " (the index reaches " + reach + more + ")"});
}

// Counts what is in an incomplete file: when the device failed or was full, packets that the muxer
// accepted may be missing.
static void CountKept(Event& closed, std::unique_ptr<base::IO> file) try {
  closed.packets = 0;
  closed.duration_ns = 0;
  avi::AviFile const avi(std::move(file), closed.path);
  for (avi::AviTrack const& track : avi.Tracks()) closed.packets += track.chunks;
  closed.duration_ns = avi.Duration_ms() * 1000000;
} catch (avi::Error const&) {
}

// Returns whether it was written.
static bool WriteHash(std::string const& path, RecorderOptions const& options,
                      std::function<void(Event)> const& report) try {
  std::string const name = avi::HashFileFor(path);
  Storage& storage = StorageOf(options);
  auto in = storage.Open(path, "rb");
  auto const out = in != nullptr ? storage.Open(name, "rwbc") : nullptr;
  if (out == nullptr) throw avi::Error(avi::kIo, std::strerror(errno));
  avi::AviFile avi(std::move(in), path);
  std::string text;
  auto const flush = [&] {
    auto const size = static_cast<unsigned>(text.size());
    if (out->Write(text.data(), size) != size)
      throw avi::Error(avi::kIo, std::strerror(out->Error()));
    text.clear();
  };
  avi::WriteHashes(
      avi, path.substr(path.rfind('/') + 1),
      [&](std::string const& line) {
        text += line;
        if (text.size() >= 1 << 16) flush();
      },
      [](std::uint64_t) { return true; });
  flush();
  if (!out->Flush()) throw avi::Error(avi::kIo, std::strerror(out->Error()));
  return true;
} catch (avi::Error const& error) {
  report({Event::kWarning, path, path + ": no hash was written: " + error.what()});
  return false;
}

void FinishFile(FinishedFile const& file, RecorderOptions const& options,
                std::function<void(Event)> const& report) {
  bool const exists = file.packets != 0 && StorageOf(options).Exists(file.path);
  if (file.packets != 0 && !exists)
    report({Event::kWarning, file.path,
            file.path + ": another program deleted or renamed it while it was recorded"});
  Event closed{Event::kClosed, file.path, {}, file.packets, 0, file.duration_ns, file.complete};
  if (exists) FinishIndex(file, options, report);
  closed.hashed = exists && options.hash && WriteHash(file.path, options, report);
  auto io = exists ? StorageOf(options).Open(file.path, "rb") : nullptr;
  for (std::string const& text : file.warnings) report({Event::kWarning, file.path, text});
  if (file.skew) report(*file.skew);
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
                  ": no key frame came early enough"});
  }
  for (std::string const& text : file.errors) report({Event::kError, file.path, text});
}

}  // namespace kestro::record
