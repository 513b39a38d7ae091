// The small parsers that read what power cuts, people and other programs leave: markers, side
// files, control lines, the names of files and the parameter sets of video. The first byte chooses
// one.
#include <nlohmann/json.hpp>

#include "avi/KeepMarker.h"
#include "avi/NamePattern.h"
#include "avi/SlotFile.h"
#include "avi/VideoFormat.h"
#include "cli/ControlRequest.h"
#include "cli/Errors.h"
#include "fuzz/Fuzz.h"
#include "support/MemoryIO.h"

namespace kestro::fuzz {
namespace {

using avi::KeepMarker;

bool Same(KeepMarker const& a, KeepMarker const& b) {
  auto const same = [](KeepMarker::Event const& x, KeepMarker::Event const& y) {
    return x.label == y.label && x.time == y.time && x.from == y.from && x.to == y.to;
  };
  return a.from == b.from && a.to == b.to &&
         std::equal(a.events.begin(), a.events.end(), b.events.begin(), b.events.end(), same);
}

// What is written is JSON for others, too, and comes back as it was.
void ReadMarker(std::string const& text) {
  static_cast<void>(KeepMarker::Parse(text));
  std::string const label = KeepMarker::Label(text);
  KESTRO_ASSERT(label.size() <= 200);
  KeepMarker own{"a", "b", {{label, "c", "a", "b"}}};
  std::string const composed = own.Compose();
  KESTRO_ASSERT(nlohmann::json::accept(composed));
  KESTRO_ASSERT(Same(KeepMarker::Parse(composed), own));
}

// An image that is found is intact, and the newest that was stored if nothing else has changed.
void ReadSlots(std::string const& text) {
  test::MemoryIO file(text);
  avi::SlotFile::Place place;
  avi::SlotFile::Image image;
  bool const found = avi::SlotFile::Find(file, place);
  KESTRO_ASSERT(avi::SlotFile::Read(file, image) == found);
  KESTRO_ASSERT(image.generation == place.generation && image.bytes.size() == place.size);
  KESTRO_ASSERT(place.at + place.size <= static_cast<base::int64>(text.size()));
  KESTRO_ASSERT(text.compare(static_cast<std::size_t>(place.at), place.size,
                             reinterpret_cast<char const*>(image.bytes.data()),
                             image.bytes.size()) == 0);
}

void ReadRequest(std::string const& line) {
  using tool::ControlRequest;
  try {
    static_cast<void>(ControlRequest::Parse(line));
    KESTRO_ASSERT(ControlRequest::Fault(line) == nullptr);
  } catch (tool::Error const& error) {
    KESTRO_ASSERT(error.what()[0] != '\0');
  }
}

// Every name that a pattern makes is recognised by its number, and no other name is.
void ReadName(Input input) {
  std::uint64_t const number = 1 + input.U16() * std::uint64_t{input.U16()};
  std::tm start = {};
  start.tm_year = static_cast<int>(input.U8());
  start.tm_mday = 1 + static_cast<int>(input.U8()) % 31;
  start.tm_min = static_cast<int>(input.U8()) % 60;
  std::string const text = input.Text();
  std::string const name = text.substr(0, text.find('/'));
  avi::NamePattern const pattern(name);
  if (name.empty() || !pattern.Valid()) return;
  std::string const made = pattern.Format(number, start);
  KESTRO_ASSERT(pattern.Match(made) == number);
  std::string const other = text.substr(std::min(name.size() + 1, text.size()));
  if (auto const found = pattern.Match(other); found && !pattern.Dated())
    KESTRO_ASSERT(pattern.Format(*found, start) == other);
}

}  // namespace
}  // namespace kestro::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  kestro::fuzz::Input input(data, size);
  switch (input.U8() % 5) {
    case 0:
      kestro::fuzz::ReadMarker(input.Text());
      break;
    case 1:
      kestro::fuzz::ReadSlots(input.Text());
      break;
    case 2:
      kestro::fuzz::ReadRequest(input.Text());
      break;
    case 3:
      kestro::fuzz::ReadName(input);
      break;
    default:
      for (char const* codec : {"h264", "hevc", "mjpeg"})
        kestro::avi::VideoFormat::Read(codec, data + 1, size - 1);
  }
  return 0;
}
