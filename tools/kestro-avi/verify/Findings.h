// Collects the findings about an AVI file.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "base/Types.h"
#include "verify/Kinds.h"

namespace kestro::tool {

using base::int64;
using base::uint64;

using Value = std::variant<int64, std::string>;

struct Finding {
  int64 offset;  // of the chunk, header field or index entry
  Value expected, found;
};

// Keeps the first findings of each kind and counts the rest.
class Findings {
 public:
  static constexpr std::size_t kKept = 20;

  struct Group {
    Kind const* kind;
    uint64 count = 0;
    std::vector<Finding> first = {};
  };

  void Add(Kind const& kind, int64 offset, Value expected, Value found);
  // Sorted by severity, then in the order in which they were found.
  std::vector<Group> const& Groups() const { return _groups; }
  uint64 Count(Severity severity) const;

 private:
  std::vector<Group> _groups;
};

}  // namespace kestro::tool
