// Allows one recorder per pattern and folder.
#pragma once

#include <string>

namespace kestro::record {

// Holds a lock on a hidden file next to the recording, ".cam-%05d.avi.lock". The lock ends with the
// process, even when the file remains. Patterns that share names, such as cam-%05N.avi and cam.avi,
// exclude each other, too.
class RecordingLock {
 public:
  RecordingLock() = default;
  ~RecordingLock() { Release(); }
  RecordingLock(RecordingLock const&) = delete;
  RecordingLock& operator=(RecordingLock const&) = delete;

  // False when another recorder holds the lock. Returns true without a lock when the file cannot be
  // created: recording then reports what is wrong.
  bool Take(std::string const& pattern);

 private:
  bool TakeOwn();
  void Release();

  std::string _path;
  int _file = -1;
};

}  // namespace kestro::record
