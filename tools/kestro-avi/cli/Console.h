// Output of the tool: data on standard output, everything else on standard error. On a terminal,
// control characters are escaped; files and pipes get all text as it is.
#pragma once

#include <string>

namespace kestro::tool {

// Opens /dev/null for standard streams that the caller has closed, so that no file gets their
// descriptors. Call this first.
void FillStandardStreams();

// Redirects standard output, to which the plug-in and the host's console print, into memory, where
// the last 64 KiB are kept; only WriteData still writes to the real standard output. After a crash
// the captured text goes to standard error. Also turns SIGXFSZ into a failed write, because file
// size limits apply to memory files too. Call this once, before a plug-in is loaded. Throws Error.
void CapturePrints();

// Writes the captured text to standard error, if there is any.
void ShowCapturedPrints();

// Writes to standard output. Throws Error on failure; ends the process when the reader of a pipe
// has gone.
void WriteData(std::string const& text);

// The same for a command that goes on then: returns false and sets errno on failure. The command
// must ignore SIGPIPE.
bool TryWriteData(std::string const& text);

// A file name as a part of text for WriteData, which keeps line ends and colours on a terminal:
// this escapes those of the name, too.
std::string Shown(std::string const& name);

// Writes the line "kestro-avi: text" to standard error.
void Report(std::string const& text);

bool OutputIsTerminal();

// Whether standard output is a terminal and colours are not turned off (NO_COLOR).
bool ColouredOutput();

// Shows a status line on standard error, which must be a terminal; the next one replaces it. Empty:
// removes it.
void ShowStatus(std::string const& text);

// Writes text and a line end to standard error, not mixed with others. `page`: the text has several
// lines.
void WriteErrorLine(std::string const& text, bool page = false);

}  // namespace kestro::tool
