// Marks code of an element or the application that the host calls.
#pragma once

#include "base/Types.h"

namespace kestro::stream {

// While a Callout exists, its thread runs a packet handler, a message handler, AcceptMedia, or the
// loop of an element's own thread. The host holds no lock meanwhile. Functions called from there
// never wait for another packet or thread: where they would have to, they refuse.
class KESTRO_API Callout {
 public:
  Callout() { ++Depth(); }
  ~Callout() { --Depth(); }
  Callout(Callout const&) = delete;
  Callout& operator=(Callout const&) = delete;

  static bool Active() { return Depth() > 0; }

 private:
  static int& Depth();
};

}  // namespace kestro::stream
