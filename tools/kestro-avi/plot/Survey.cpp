#include "plot/Survey.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kestro::tool {

using base::Convert4;

Survey::Survey(avi::AviFile& avi) {
  AddPackets(avi);
  AddParts(avi);
}

// The time of a track after some of its chunks. Audio is timed by bytes, unless its header counts
// chunks.
static double TimeOf(avi::AviTrack const& track, base::uint64 chunks, base::uint64 bytes) {
  bool const byBytes =
      track.type == "audio" && track.bytesPerSecond != 0 && track.length != track.chunks;
  if (byBytes) return static_cast<double>(bytes) / track.bytesPerSecond;
  if (track.rate == 0) return 0;
  return static_cast<double>(chunks) * track.scale / track.rate;
}

void Survey::AddPackets(avi::AviFile& avi) {
  struct Count {
    base::uint64 chunks = 0, bytes = 0;
  };
  std::vector<Count> counts(avi.Tracks().size());
  auto const add = [&](avi::IndexEntry const& entry, unsigned size) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (track >= counts.size()) return;
    std::size_t const clock = avi.ClockOf(track);
    avi::AviTrack const& info = avi.Tracks()[clock];
    Count& count = counts[clock];
    Packet packet{entry.offset,
                  TimeOf(info, count.chunks, count.bytes),
                  0,
                  size,
                  static_cast<unsigned>(track),
                  (entry.flags & avi::IndexEntry::kKey) != 0};
    packet.end = TimeOf(info, count.chunks + 1, count.bytes + size);
    if (clock == track) {
      ++count.chunks;
      count.bytes += size;
    }
    duration = std::max(duration, clock == track ? packet.end : packet.begin);
    packets.push_back(packet);
  };
  if (avi.Indexed())
    avi.ForEachEntry([&](avi::IndexEntry const& entry) { add(entry, avi.DataSize(entry)); });
  else
    avi.ForEachChunk([&](avi::IndexEntry const& entry) { add(entry, entry.size); });
  std::stable_sort(packets.begin(), packets.end(),
                   [](Packet const& a, Packet const& b) { return a.offset < b.offset; });
}

static char const* KindOf(avi::Chunk const& chunk, char const* outer) {
  if (chunk.id == Convert4("JUNK")) return "JUNK";
  if (chunk.id == Convert4("idx1")) return "index";
  if (chunk.type == Convert4("movi")) return "movi";
  if (chunk.type == Convert4("hdrl") || chunk.type == Convert4("INFO")) return "header";
  return outer;
}

void Survey::AddPart(char const* kind, int64 begin, int64 end) {
  if (begin >= end) return;
  bool const more = !parts.empty() && std::strcmp(parts.back().kind, kind) == 0;
  if (more)
    parts.back().end = end;
  else
    parts.push_back({kind, begin, end});
}

void Survey::AddParts(avi::AviFile const& avi) {
  std::vector<Part> open{{"other", 0, avi.Size()}};  // the lists around the current offset
  int64 at = 0;
  auto const advance = [&](int64 to) {
    for (; open.size() > 1 && open.back().end <= to; open.pop_back()) {
      AddPart(open.back().kind, at, open.back().end);
      at = std::max(at, open.back().end);
    }
    AddPart(open.back().kind, at, to);
    at = std::max(at, to);
  };
  for (avi::Chunk const& chunk : avi.Tree()) {
    advance(chunk.offset);
    bool const riff = chunk.id == Convert4("RIFF");
    if (riff) AddPart("header", at, chunk.Data());
    if (riff) at = chunk.Data();
    int64 const end = std::min(chunk.end + chunk.size % 2, open.front().end);
    open.push_back({KindOf(chunk, open.back().kind), at, end});
  }
  advance(avi.Size());
}

std::vector<double> BitRates(Survey const& survey, std::size_t track, double step) {
  auto const count = static_cast<std::size_t>(std::ceil(survey.duration / step - 1e-9));
  std::vector<double> rates(std::max<std::size_t>(count, 1));
  auto const width = [&](std::size_t i) {
    return std::min(step, survey.duration - static_cast<double>(i) * step);
  };
  for (Survey::Packet const& packet : survey.packets) {
    if (packet.track != track) continue;
    double const end = std::min(packet.end, survey.duration);
    auto i = std::min(static_cast<std::size_t>(packet.begin / step), rates.size() - 1);
    for (double at = packet.begin; at < end && i < rates.size(); ++i) {
      bool const last = i + 1 == rates.size();
      double const next = last ? end : std::min(end, static_cast<double>(i + 1) * step);
      rates[i] += packet.size * 8.0 * (next - at) / (packet.end - packet.begin) / width(i);
      at = std::max(at, next);
    }
  }
  return rates;
}

std::vector<Lead> Leads(Survey const& survey, std::size_t track, std::size_t other,
                        int64 interval) {
  std::vector<Lead> leads;
  double own = 0, others = 0;  // begin of the current packet, else end of the last one
  double ownEnd = 0, othersBegin = 0;
  for (Survey::Packet const& packet : survey.packets) {
    if (packet.track != track && packet.track != other) continue;
    if (packet.track == track) {
      own = packet.begin, ownEnd = packet.end;
      others = othersBegin;
    } else {
      othersBegin = others = packet.begin;
      own = ownEnd;
    }
    double const lead = own - others;
    if (leads.empty() || packet.offset / interval != leads.back().offset / interval) {
      leads.push_back({packet.offset, lead, lead});
    } else {
      leads.back().low = std::min(leads.back().low, lead);
      leads.back().high = std::max(leads.back().high, lead);
    }
  }
  return leads;
}

}  // namespace kestro::tool
