// The system as the rig's recorder has it: what syncs is counted, and bugs can be planted there.
#pragma once

#include <string>

namespace kestro::rig {

struct System {
  enum Plant {
    kNone,
    kNoBarrier,   // nothing is made durable
    kDataOnly,    // fdatasync alone: what makes a whole file system durable does nothing
    kRename,      // the side file is replaced by one that takes its name
    kFrontFirst,  // headers and index are durable before the data that they speak of
  };
  static Plant Planted(std::string const& name);  // "" for none; ends the process at others

  Plant plant = kNone;
  std::string file;       // the recording that is open
  long front = 0;         // what was written before its first barrier, its data left out
  long barriers = 0;      // that the recording has got
  long sideBarriers = 0;  // and its side file
};
extern System theSystem;

}  // namespace kestro::rig
