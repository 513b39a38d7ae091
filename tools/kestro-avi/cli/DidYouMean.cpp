#include "cli/DidYouMean.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace kestro::tool {

// The number of letters that are missing, extra, wrong, or swapped with the next one.
static std::size_t Distance(std::string const& a, std::string const& b) {
  std::vector<std::size_t> before, last(b.size() + 1), now(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        now[j] = std::min(now[j], before[j - 2] + 1);
    }
    before = std::exchange(last, now);
  }
  return last.back();
}

std::string DidYouMean(std::string const& word, std::vector<std::string> const& candidates) {
  constexpr std::size_t kShortest = 3;  // shorter words resemble anything
  std::string const* best = nullptr;
  std::size_t least = word.size() / 4 + 2;  // too far
  for (std::string const& candidate : candidates) {
    if (std::min(word.size(), candidate.size()) < kShortest) continue;
    bool const begins = candidate.compare(0, word.size(), word) == 0;
    std::size_t const distance = begins ? 1 : Distance(word, candidate);
    if (distance >= least) continue;
    least = distance;
    best = &candidate;
  }
  return best == nullptr ? "" : "; did you mean '" + *best + "'?";
}

}  // namespace kestro::tool
