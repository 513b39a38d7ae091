#include "stream/Callout.h"

namespace kestro::stream {

int& Callout::Depth() {
  static thread_local int depth = 0;
  return depth;
}

}  // namespace kestro::stream
