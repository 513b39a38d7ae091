#include "recorder/SpaceLimits.h"

#include <algorithm>

namespace kestro::record {

static constexpr std::uint64_t kMiB = 1 << 20;
// For closing the open file, besides what it needs now; ...
static constexpr std::uint64_t kReserve = 5 * kMiB / 2;
static constexpr std::uint64_t kAhead = 8 * kMiB;  // ... and for writing while files are deleted.
static constexpr unsigned kSmallest = 16;          // neither is more than this part of the space
static constexpr std::uint64_t kSmallestSegment = 256 * 1024;

namespace {
class Judgement {
 public:
  explicit Judgement(std::uint64_t space)  // that the limit of free space leaves
      : _reserve(std::min(kReserve, space / kSmallest)),
        _ahead(std::min(kAhead, space / kSmallest)) {}

  std::uint64_t Reserve() const { return _reserve; }
  // There is `has`, and must be `least`: sums of bytes, none near the limits of the type.
  void Compare(std::uint64_t has, std::uint64_t least, std::uint64_t most, char const* limit) {
    std::uint64_t const reserve = std::min(_reserve, most);
    std::uint64_t const low = least + reserve + std::min(_ahead, most);
    need.space |= has < low;
    need.slack =
        std::min(need.slack, static_cast<std::int64_t>(has) - static_cast<std::int64_t>(low));
    if (has < least + reserve / 2) Exceeded(limit);
  }
  void Exceeded(char const* limit) {
    if (!need.critical) need.limit = limit;
    need.space = need.critical = true;
  }

  SpaceNeed need;

 private:
  std::uint64_t const _reserve, _ahead;
};
}  // namespace

static std::uint64_t Minus(std::uint64_t a, std::uint64_t b) { return a > b ? a - b : 0; }

SpaceNeed Judge(RetentionOptions const& limits, SpaceUsage const& usage) {
  bool const known = usage.free != UINT64_MAX;
  std::uint64_t const all = (known ? usage.free : 0) + usage.own + usage.busy;
  std::uint64_t const keepFree = limits.keepFree.value_or(0);
  Judgement judgement(Minus(all, keepFree));
  std::uint64_t room = UINT64_MAX;
  if (known) {
    judgement.Compare(usage.free + usage.coming, keepFree + usage.pending, UINT64_MAX,
                      limits.keepFree ? "the limit of free space" : "");
    room = Minus(all - usage.kept, keepFree + judgement.Reserve());
  }
  if (limits.keepBytes) {
    judgement.Compare(*limits.keepBytes, usage.own + usage.busy + usage.pending,
                      *limits.keepBytes / kSmallest, "the limit of bytes");
    room = std::min(room, Minus(*limits.keepBytes, usage.kept));
  }
  if (limits.keepFiles && usage.files > *limits.keepFiles) judgement.Exceeded("the limit of files");
  if (room != UINT64_MAX) judgement.need.segmentSize = std::max(room / 4, kSmallestSegment);
  return judgement.need;
}

}  // namespace kestro::record
