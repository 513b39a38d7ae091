#include "verify/Findings.h"

#include <algorithm>

namespace kestro::tool {

void Findings::Add(Kind const& kind, int64 offset, Value expected, Value found) {
  auto group = std::find_if(_groups.begin(), _groups.end(),
                            [&](Group const& other) { return other.kind == &kind; });
  if (group == _groups.end()) {
    auto const next = std::find_if(_groups.begin(), _groups.end(), [&](Group const& other) {
      return other.kind->severity > kind.severity;
    });
    group = _groups.insert(next, {&kind});
  }
  if (++group->count <= kKept)
    group->first.push_back({offset, std::move(expected), std::move(found)});
}

uint64 Findings::Count(Severity severity) const {
  uint64 count = 0;
  for (Group const& group : _groups)
    if (group.kind->severity == severity) count += group.count;
  return count;
}

}  // namespace kestro::tool
