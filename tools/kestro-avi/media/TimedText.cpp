#include "media/TimedText.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "base/LittleEndian.h"
#include "media/Scaled.h"

namespace kestro::tool {

// The parts of a packet, each after a type and a size.
static constexpr std::size_t kPartHeader = 6;
static constexpr int kName = 2, kFile = 4;
static std::string const kMagic("GAB2\0", 5);

std::int64_t TextTime_ms(avi::AviTrack const& clock, std::uint64_t frame) {
  constexpr std::int64_t kLatest = std::int64_t{1} << 40;
  std::int64_t const ms = Scaled(static_cast<std::int64_t>(frame), std::int64_t{clock.scale} * 1000,
                                 clock.rate, Rounding::kTowardsZero);
  return ms < 0 ? kLatest : std::min(ms, kLatest);  // negative on overflow
}

static std::string Stamp(std::int64_t ms) {
  char text[48];
  std::snprintf(text, sizeof text, "%02lld:%02d:%02d,%03d", static_cast<long long>(ms / 3600000),
                static_cast<int>(ms / 60000 % 60), static_cast<int>(ms / 1000 % 60),
                static_cast<int>(ms % 1000));
  return text;
}

// An empty line would end the cue, so a blank is added.
static std::string Lines(std::string const& text) {
  std::string lines;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t const end = std::min(text.find('\n', at), text.size());
    std::string const line = text.substr(at, end - at);
    lines += (line.empty() || line == "\r" ? " " : line) + "\n";
    at = end + 1;
  }
  return lines;
}

std::string SrtCue(unsigned number, TimedText const& text) {
  return std::to_string(number) + "\n" + Stamp(text.start_ms) + " --> " + Stamp(text.end_ms) +
         "\n" + Lines(text.text);
}

static std::string PartHeader(int type, std::size_t size) {
  unsigned char header[kPartHeader] = {static_cast<unsigned char>(type), 0};
  base::Store32(header + 2, static_cast<std::uint32_t>(size));
  return {header, header + kPartHeader};
}

std::string WrapSrt(std::vector<TimedText> const& texts) {
  std::string file;
  unsigned number = 0;
  for (TimedText const& text : texts) file += SrtCue(++number, text) + "\n";
  return kMagic + PartHeader(kName, 0) + PartHeader(kFile, file.size()) + file;
}

// Reads a line such as "00:00:01,500 --> 00:00:03,000".
static bool ParseTimes(std::string const& line, TimedText& text) {
  unsigned hours[2], minutes[2], seconds[2], ms[2];
  if (std::sscanf(line.c_str(), "%9u:%2u:%2u,%3u --> %9u:%2u:%2u,%3u", &hours[0], &minutes[0],
                  &seconds[0], &ms[0], &hours[1], &minutes[1], &seconds[1], &ms[1]) != 8)
    return false;
  std::int64_t* const times[] = {&text.start_ms, &text.end_ms};
  for (int i : {0, 1})
    *times[i] = ((std::int64_t{hours[i]} * 60 + minutes[i]) * 60 + seconds[i]) * 1000 + ms[i];
  return true;
}

static std::vector<TimedText> ParseSrt(std::string const& file) {
  std::vector<TimedText> texts;
  std::istringstream lines(file);
  std::string line;
  auto const next = [&] {
    if (!std::getline(lines, line)) return false;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
  };
  while (next()) {
    TimedText text;
    if (!ParseTimes(line, text)) continue;
    while (next() && !line.empty()) text.text += (text.text.empty() ? "" : "\n") + line;
    texts.push_back(std::move(text));
  }
  return texts;
}

std::vector<TimedText> UnwrapSrt(std::uint8_t const* data, std::size_t size) {
  if (size < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), data)) return {};
  std::size_t at = kMagic.size();
  while (size - at >= kPartHeader) {
    int const type = data[at] | data[at + 1] << 8;
    std::size_t const length = base::Load32(data + at + 2);
    at += kPartHeader;
    if (length > size - at) break;
    if (type == kFile) return ParseSrt({data + at, data + at + length});
    at += length;
  }
  return {};
}

}  // namespace kestro::tool
