// Marks where the host calls an element's or the application's code.
#pragma once

#include "base/Types.h"

namespace kestro::stream {

// While one exists, its thread runs a packet handler, a message handler, AcceptMedia, or the loop
// of an element's own thread. No lock of the host is held there, and what is called from there
// never waits for another packet or thread to finish: it is refused where it would have to.
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
