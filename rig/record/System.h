// Counts the syncs of the recorder in the rig, and plants faults there.
#pragma once

#include <string>

namespace kestro::rig {

struct System {
  enum Plant {
    kNone,
    kNoBarrier,  // nothing is made durable
    kDataOnly,   // only fdatasync works: syncfs does nothing
  };
  static Plant Planted(std::string const& name);  // "" for none; ends the process at others

  Plant plant = kNone;
  std::string file;       // the open recording
  long barriers = 0;      // of the recording
  long sideBarriers = 0;  // of its side file
};
extern System theSystem;

}  // namespace kestro::rig
