#include "media/libav/InputChecks.h"

#include <cstring>
#include <filesystem>
#include <fstream>

#include "avi/AviFile.h"
#include "base/LittleEndian.h"
#include "cli/Errors.h"
#include "cli/Text.h"

namespace kestro::tool {

// A recording of this system knows its start; other containers may have a date, which writers leave
// out or set to their epoch when they do not know it.
std::optional<avi::StartTime> ReadStart(std::string const& address, AVFormatContext const& format) {
  if (std::strcmp(format.iformat->name, "avi") == 0) {
    try {
      if (auto const start = avi::AviFile(address).ReadSoftware().start) return start;
    } catch (Error const&) {  // libavformat reads more than we do
    }
  }
  auto const* const date = av_dict_get(format.metadata, "creation_time", nullptr, 0);
  auto const time = avi::IsoTime::Parse(date != nullptr ? date->value : "");
  if (!time || !time->zoned || time->time_ns <= 0) return std::nullopt;
  return avi::StartTime{time->time_ns, true};
}

// A RIFF file, such as WAV or AVI, that was cut off looks like a short one.
Notices CheckSize(std::string const& path) {
  std::uint8_t head[8] = {};
  std::error_code none;
  std::ifstream file(path, std::ios::binary);
  auto const size = std::filesystem::file_size(path, none);
  if (none || !file.read(reinterpret_cast<char*>(head), sizeof head) ||
      std::memcmp(head, "RIFF", 4) != 0)
    return {};
  std::uint64_t const expected = base::Load32(head + 4) + std::uint64_t{8};
  bool const streamed = expected == 8 || expected > UINT32_MAX;  // its size was never written
  if (streamed || size >= expected) return {};
  return {path + ": is cut off, at " + ByteCount(size) + " of " + ByteCount(expected)};
}

}  // namespace kestro::tool
