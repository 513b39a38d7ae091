#include "verify/ReadAnnexB.h"

#include "cli/Text.h"
#include "verify/FrameConverter.h"

namespace kestro::tool {

std::vector<std::string> ReadAnnexB(avi::AviFile& avi, std::vector<bool> const& selected,
                                    AnnexBSink const& sink, avi::TrackReader::Range* range) {
  std::vector<FrameConverter> converters(avi.Tracks().begin(), avi.Tracks().end());
  std::vector<std::uint64_t> damaged(converters.size());
  Bytes frame;
  avi::TrackReader reader(avi, selected);
  reader.Limit(range);
  reader.ForEach([&](std::size_t track, avi::Piece const& piece) {
    if (!converters[track].Needed()) return sink(track, piece, piece.size);
    damaged[track] += !converters[track].Convert(piece.data, piece.size, frame);
    return sink(track, {frame.data(), frame.size(), piece.position, piece.key, piece.offset},
                piece.size);
  });
  auto faults = reader.Faults();
  for (std::size_t i = 0; i < converters.size(); ++i) {
    std::string const name = "track " + std::to_string(i) + ": ";
    if (selected[i] && converters[i].Needed() && converters[i].SetsDamaged())
      faults.push_back(name + "the parameter sets in its header are damaged");
    if (damaged[i] != 0)
      faults.push_back(name + Quantity(damaged[i], "damaged frame") + " written partly");
  }
  return faults;
}

}  // namespace kestro::tool
