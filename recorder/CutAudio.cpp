#include "recorder/CutAudio.h"

#include <algorithm>
#include <cmath>

namespace kestro::record {

static constexpr std::int64_t kRounding_ns = 1000;  // of packet times, as in Segments

base::Ref<stream::Packet> CutAudio(TrackInfo const& info, stream::Packet& packet,
                                   std::int64_t time_ns) {
  std::int64_t const ahead_ns = time_ns - packet.Pts();
  std::int64_t const rest_ns = packet.Pts() + packet.Duration() - time_ns;
  if (!info.IsAudio() || ahead_ns <= kRounding_ns || rest_ns <= kRounding_ns) return {};
  auto const samples = std::llround(static_cast<double>(ahead_ns) * info.rate / 1e9);
  int const bytes =
      static_cast<int>(std::min<long long>(packet.Size(), samples * info.FrameBytes()));
  auto first = packet.Share();
  first->Size(bytes);
  first->Duration(ahead_ns);
  packet.Duration(rest_ns);
  packet.Pts(time_ns);
  packet.Offset(packet.Offset() + bytes);
  return first;
}

}  // namespace kestro::record
