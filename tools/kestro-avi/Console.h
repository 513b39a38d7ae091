// The two roads to the user: data on standard output, everything else on standard error.
#pragma once

#include <string>

namespace kestro::tool {

// Whatever else prints to standard output (a plug-in does) goes to standard error from here on;
// WriteData alone reaches the real one. Called once, before a plug-in is loaded.
void ReserveStandardOutput();

// Writes to standard output. Throws Error when that fails.
void WriteData(std::string const& text);

// One line "kestro-avi: text" on standard error.
void Report(std::string const& text);

// Shows a line that the next one overwrites, when standard error is a terminal.
class Progress {
 public:
  Progress();
  ~Progress() { Clear(); }
  bool Visible() const { return _terminal; }
  void Show(std::string const& text);
  void Clear();

 private:
  bool _terminal;
};

}  // namespace kestro::tool
