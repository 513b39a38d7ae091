#include "soak/Checker.h"

#include "avi/Error.h"
#include "avi/RiffReader.h"
#include "soak/Film.h"

namespace kestro::soak {

static constexpr std::size_t kMostFaults = 20;

void Checker::Jump(std::uint64_t from, std::uint64_t to) {
  std::lock_guard lock(_mutex);
  _jumps[from] = to;
}

void Checker::Begin(std::uint64_t number, bool all) {
  std::lock_guard lock(_mutex);
  _next[0] = _next[1] = number;
  _jumps.clear();
  _all = all;
}

void Checker::End(std::uint64_t number) {
  std::string missing;
  {
    std::lock_guard lock(_mutex);
    for (std::uint64_t const next : _next)
      if (_all && next != number) missing = std::to_string(next);
  }
  if (!missing.empty())
    Fault("the files end at packet " + missing + ", not at " + std::to_string(number));
}

void Checker::Fault(std::string const& text) {
  std::lock_guard lock(_mutex);
  if (_faults.size() < kMostFaults) _faults.push_back(text);
}

std::vector<std::string> Checker::Faults() const {
  std::lock_guard lock(_mutex);
  return _faults;
}

std::uint64_t Checker::Files() const {
  std::lock_guard lock(_mutex);
  return _files;
}

std::uint64_t Checker::Bytes() const {
  std::lock_guard lock(_mutex);
  return _bytes;
}

void Checker::Check(std::string const& path) try {
  avi::AviFile avi(path);
  if (!avi.Indexed() || avi.CutOff() || avi.Tracks().size() != 2)
    return Fault(path + ": is incomplete");
  CheckPackets(avi, path);
  std::lock_guard lock(_mutex);
  ++_files;
  _bytes += static_cast<std::uint64_t>(avi.Size());
} catch (avi::Error const& error) {
  Fault(path + ": " + error.what());
}

std::string Checker::ReadPacket(avi::AviFile& avi, avi::IndexEntry const& entry) {
  std::string data(avi.DataSize(entry), '\0');
  avi.Reader().Read(entry.offset + 8, data.data(), static_cast<unsigned>(data.size()));
  return data;
}

void Checker::CheckPackets(avi::AviFile& avi, std::string const& path) {
  std::uint64_t expected[2];
  bool all = true, first[2] = {true, true};
  std::map<std::uint64_t, std::uint64_t> jumps;
  {
    std::lock_guard lock(_mutex);
    std::copy(_next, _next + 2, expected);
    all = _all;
    jumps = _jumps;
  }
  std::string fault;
  avi.ForEachEntry([&](avi::IndexEntry const& entry) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (!fault.empty() || track > 1) return;
    std::string const data = ReadPacket(avi, entry);
    std::int64_t const number = Film::NumberOf(track, data);
    auto& next = expected[track];
    if (auto const jump = jumps.find(next); first[track] && jump != jumps.end())
      next = jump->second;
    if (first[track] && !all && number >= 0) next = static_cast<std::uint64_t>(number);
    bool const begins = !first[track] || Film::IsKey(next);
    first[track] = false;
    if (number != static_cast<std::int64_t>(next) || data != Film::Stored(track, next) || !begins)
      fault = path + ": track " + std::to_string(track) + " has packet " + std::to_string(number) +
              " instead of " + std::to_string(next);
    ++next;
  });
  if (fault.empty() && expected[0] != expected[1]) fault = path + ": the tracks differ in length";
  if (!fault.empty()) return Fault(fault);
  std::lock_guard lock(_mutex);
  std::copy(expected, expected + 2, _next);
}

}  // namespace kestro::soak
