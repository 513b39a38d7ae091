// Keeps a file with the state of a recording up to date.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "verbs/StatusReport.h"

namespace kestro::tool {

// Replaces the file every second, on its own thread. Readers always find a complete document. If it
// cannot be written, there is one warning. The file is not synced.
class StatusFile {
 public:
  StatusFile(std::string path, StatusReport const& report);  // which must outlive the object
  ~StatusFile();                                             // writes the last state

 private:
  void Run();
  void Write();

  std::string const _path;
  StatusReport const& _report;
  bool _warned = false;
  std::mutex _mutex;  // protects _ended
  std::condition_variable _wake;
  bool _ended = false;
  std::thread _thread;
};

}  // namespace kestro::tool
