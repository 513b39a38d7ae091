// Keeps account of inputs that are lost and come back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/Notice.h"

namespace kestro::tool {

class Absences {
 public:
  explicit Absences(std::size_t inputs) : _inputs(inputs) {}

  // Times are those of the steady clock; `at_ns`: in the recording. The notices are for people and
  // programs.
  Notice Lose(std::size_t input, std::string const& name, std::string const& reason,
              std::int64_t at_ns);
  Notice Return(std::size_t input, unsigned attempts, std::int64_t at_ns);
  void GiveUp(std::size_t input) { _inputs[input].gone = true; }

  bool Away(std::size_t input) const { return _inputs[input].since_ns != 0; }
  bool Gone(std::size_t input) const { return _inputs[input].gone; }  // away for good
  bool Awaited() const;                                               // one of them may come back
  // One line for each input that was lost: how often, and for how long.
  Notices Findings() const;

 private:
  struct Input {
    std::string name;
    std::int64_t since_ns = 0, total_ns = 0;
    unsigned count = 0;
    bool gone = false;
  };
  std::vector<Input> _inputs;
};

}  // namespace kestro::tool
