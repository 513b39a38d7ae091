#include "base/Reference.h"

namespace kestro::base {

void Reference::Free() const { delete this; }

}  // namespace kestro::base
