// One recorder for a pattern in a folder.
#pragma once

#include <string>

namespace kestro::record {

// Holds a hidden file next to the recording, ".cam-%05d.avi.lock", locked. The lock ends with the
// process: a file that remains does not count.
class RecordingLock {
 public:
  RecordingLock() = default;
  ~RecordingLock();
  RecordingLock(RecordingLock const&) = delete;
  RecordingLock& operator=(RecordingLock const&) = delete;

  // False when another recorder has it. Where no such file can be made there is no lock: recording
  // will say what is wrong there, if anything is.
  bool Take(std::string const& pattern);

 private:
  std::string _path;
  int _file = -1;
};

}  // namespace kestro::record
