#include "stream/NalUnits.h"

namespace kestro::stream {

std::vector<std::uint8_t> ParameterSets(bool hevc, std::uint8_t const* data, std::size_t size) {
  NalCodec const codec = hevc ? NalCodec::kHevc : NalCodec::kH264;
  std::vector<std::uint8_t> sets;
  unsigned missing = (1u << ParameterSetKinds(codec)) - 1;
  for (NalUnits<AllCodes> unit(codec, data, size); unit.More(); unit.Next()) {
    if (unit.Header().IsSlice()) break;
    int const kind = unit.Header().ParameterSet();
    if (kind < 0) continue;
    missing &= ~(1u << kind);
    std::size_t end = unit.End();
    while (end > unit.Begin() + 1 && unit.End() < size && data[end - 1] == 0) --end;
    sets.insert(sets.end(), {0, 0, 0, 1});
    sets.insert(sets.end(), data + unit.Begin(), data + end);
  }
  if (missing != 0) sets.clear();
  return sets;
}

}  // namespace kestro::stream
