// The two roads to the user: data on standard output, everything else on standard error.
#pragma once

#include <string>

namespace kestro::tool {

// Standard streams that the caller has closed stay without use: a file must not take their places.
// Called first.
void FillStandardStreams();

// Whatever else prints to standard output (a plug-in does) goes to standard error from here on;
// WriteData alone reaches the real one. Called once, before a plug-in is loaded.
void ReserveStandardOutput();

// Writes to standard output. Throws Error when that fails; a pipe without a reader ends the
// process.
void WriteData(std::string const& text);

// One line "kestro-avi: text" on standard error.
void Report(std::string const& text);

// Whether standard output is a terminal whose user has not asked for plain text (NO_COLOR).
bool ColouredOutput();

// A line on standard error, a terminal, that the next one takes the place of; empty for none. While
// it is shown, what the plug-in prints waits for the next one.
void ShowStatus(std::string const& text);

// A line on standard error as it is, not mixed with others.
void WriteErrorLine(std::string const& line);

}  // namespace kestro::tool
