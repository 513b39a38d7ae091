// Where the contenders of a case write.
#pragma once

#include <string>

namespace kestro::bench {

// A new file, or nowhere.
struct Target {
  std::string path;  // empty: the bytes are dropped
  // Removes the file, so that it does not slow down the next run.
  void Clear() const;
};

}  // namespace kestro::bench
