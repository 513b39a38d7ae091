// The two roads to the user: data on standard output, everything else on standard error.
#pragma once

#include <string>

namespace kestro::tool {

// Standard streams that the caller has closed stay without use: a file must not take their places.
// Called first.
void FillStandardStreams();

// Whatever else prints to standard output, as a plug-in and the host's console do, is caught from
// here on, and the last 64 KiB of it are kept in memory: WriteData alone reaches the real one. A
// crash writes them to standard error. A file that reaches the system's size limit, which holds for
// memory files too, is a failed write from here on instead of a signal. Called once, before a
// plug-in is loaded. Throws Error.
void CatchPrints();

// Writes to standard error what was caught, if anything.
void ShowCaughtPrints();

// Writes to standard output. Throws Error when that fails; a pipe without a reader ends the
// process.
void WriteData(std::string const& text);

// One line "kestro-avi: text" on standard error.
void Report(std::string const& text);

// Whether standard output is a terminal whose user has not asked for plain text (NO_COLOR).
bool ColouredOutput();

// A line on standard error, a terminal, that the next one takes the place of; empty for none.
void ShowStatus(std::string const& text);

// A line on standard error as it is, not mixed with others.
void WriteErrorLine(std::string const& line);

}  // namespace kestro::tool
