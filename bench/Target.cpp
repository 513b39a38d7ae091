#include "Target.h"

#include <unistd.h>

namespace kestro::bench {

void Target::Clear() const {
  if (!path.empty()) unlink(path.c_str());
}

}  // namespace kestro::bench
