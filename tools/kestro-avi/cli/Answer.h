// The messages of a command, and its answer to programs: with --json, one document at its end or a
// line for each event.
#pragma once

#include <string>

#include "cli/Documents.h"
#include "cli/Notice.h"
#include "cli/Options.h"

namespace kestro::tool {

// The option --json. It takes effect as soon as it is parsed, so that errors in the rest of the
// command line are reported as JSON, too.
class JsonOption {
 public:
  enum Form { kNone, kDocument, kLines };
  Option AddTo(Options& options, Form form = kDocument);  // the object must outlive the command
  explicit operator bool() const { return _chosen; }

 private:
  bool _chosen = false;
};

enum class Level { kNote, kWarning, kError };

// Writes "kestro-avi: warning: text" to standard error, and the message into the answer unless it
// was reported already. Any thread.
void ReportNotice(Level level, Notice const& notice);
inline void ReportNote(Notice const& notice) { ReportNotice(Level::kNote, notice); }
inline void ReportWarning(Notice const& notice) { ReportNotice(Level::kWarning, notice); }
inline void ReportError(Notice const& notice) { ReportNotice(Level::kError, notice); }

// Writes a line at once if the answer has lines. When they cannot be written, the command goes on,
// and FinishAnswer reports it. Any thread.
void WriteEvent(Json const& event);
void WriteEvent(Level level, Notice const& notice);

// Sets the keys of the document, or of the last line.
void SetAnswer(Json keys);
// Writes no answer, because standard output gets something else.
void CancelAnswer();
// Writes the document or the last line with the exit code and, if the command failed, the reason.
// Returns the exit code, which lost lines change. Throws Error.
int FinishAnswer(int code, std::string const& why);

}  // namespace kestro::tool
