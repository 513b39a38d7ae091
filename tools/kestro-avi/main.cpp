// kestro-avi: records, describes, checks and repairs AVI files with the plug-in.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <memory>
#include <sstream>

#include "cli/Address.h"
#include "cli/Answer.h"
#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Options.h"
#include "cli/Suggest.h"
#include "verbs/ExtractVerb.h"
#include "verbs/InfoVerb.h"
#include "verbs/JoinVerb.h"
#include "verbs/PagesVerb.h"
#include "verbs/PlayVerb.h"
#include "verbs/PluginVerb.h"
#include "verbs/RecordVerb.h"
#include "verbs/RepairVerb.h"
#include "verbs/VerifyVerb.h"

using namespace kestro::tool;

// Shows the examples, with which every footer begins, before the options and the rest after them.
class ExamplesFirst : public CLI::Formatter {
 public:
  std::string make_usage(CLI::App const* app, std::string name) const override {
    std::string const footer = app->get_footer();
    return "\n" + footer.substr(0, footer.find("\n\n")) + "\n\n" +
           CLI::Formatter::make_usage(app, name);
  }
  std::string make_footer(CLI::App const* app) const override {
    std::string const footer = app->get_footer();
    std::size_t const end = footer.find("\n\n");
    return end == footer.npos ? "" : footer.substr(end + 2) + "\n";
  }
};

class CommandLine {
 public:
  // Sets `verbose` when the plug-in's output should be shown; it must outlive the object.
  explicit CommandLine(bool& verbose);
  // Returns the exit code. Throws Error.
  int Run(int argc, char** argv);

 private:
  template <class Verb>
  void Add(char const* name, char const* text, Verb& verb) {
    CLI::App* const sub = _app.add_subcommand(name, text);
    Options options(*sub);
    verb.AddTo(options);
    for (CLI::Option* const option : sub->get_options())
      if (option->get_items_expected_max() > 0) option->check(NotEmpty());
    sub->add_flag("--verbose", _verbose, "Also show what the plug-in prints");
    sub->callback([this, &verb] { _run = [&verb] { return verb.Run(); }; });
  }

  CLI::App _app{
      "Records video, audio and text into AVI files, and plays, extracts, describes, checks and\n"
      "repairs them.",
      "kestro-avi"};
  bool& _verbose;
  RecordVerb _record;
  PlayVerb _play;
  ExtractVerb _extract;
  InfoVerb _info;
  VerifyVerb _verify;
  RepairVerb _repair;
  JoinVerb _clip{JoinVerb::kClip}, _join{JoinVerb::kJoin};
  PluginVerb _plugin;
  PagesVerb _pages{_app};
  std::function<int()> _run;  // the selected command
};

CommandLine::CommandLine(bool& verbose) : _verbose(verbose) {
  _app.formatter(std::make_shared<ExamplesFirst>());  // the commands inherit it
  _app.set_version_flag("--version", "kestro-avi " KESTRO_VERSION);
  _app.require_subcommand(1);
  _app.footer(
      "Examples:\n"
      "  kestro-avi record -o out.avi movie.mp4\n"
      "  kestro-avi info out.avi\n"
      "  kestro-avi repair cut.avi -o whole.avi\n"
      "  kestro-avi extract --track 0:video.h264 --track 1:audio.wav out.avi\n\n"
      "\"kestro-avi COMMAND --help\" describes a command. Exit codes: 0 success, 1 done with\n"
      "findings, 2 usage error, 3 I/O error, 4 not an AVI file or cannot be recorded, 130\n"
      "interrupted.");
  Add("record", "Record inputs into an AVI file", _record);
  Add("play", "Play an AVI file and list its packets", _play);
  Add("extract", "Write tracks of an AVI file to other files", _extract);
  Add("clip", "Cut a part out of one or several AVI files", _clip);
  Add("join", "Join AVI files into one", _join);
  Add("info", "Describe AVI files", _info);
  Add("verify", "Check AVI files", _verify);
  Add("repair", "Make a playable file from a recording that was cut off", _repair);
  Add("plugin", "List the plug-in's classes and properties", _plugin);
  Add("generate", "Write the manual page or shell completions", _pages);
}

int CommandLine::Run(int argc, char** argv) {
  try {
    _app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    if (error.get_exit_code() != 0) throw Error(kUsage, Explain(_app, error));
    std::ostringstream text;  // of --help or --version
    _app.exit(error, text, text);
    CancelAnswer();
    WriteData(text.str());
    return kOk;
  }
  return _run();
}

int main(int argc, char** argv) {
  FillStandardStreams();
  bool verbose = false;
  int code = kOk;
  std::string why;
  try {
    CapturePrints();
    code = CommandLine(verbose).Run(argc, argv);
  } catch (Error const& error) {
    code = error.Code();
    why = Hidden(error.what());
  } catch (std::exception const& error) {  // out of memory
    code = kIo;
    why = error.what();
  }
  try {
    code = FinishAnswer(code, why);
  } catch (Error const& error) {
    if (why.empty()) why = error.what();
    code = std::max<int>(code, error.Code());
  }
  bool const failed = code >= kUsage && code != kInterrupted;
  if (failed || verbose) ShowCapturedPrints();
  if (!why.empty()) Report(why);
  return code;
}
