// kestro-avi: records, describes, checks and repairs AVI files with the plug-in.

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <memory>

#include "Console.h"
#include "Errors.h"
#include "ExtractVerb.h"
#include "InfoVerb.h"
#include "PlayVerb.h"
#include "PluginVerb.h"
#include "RecordVerb.h"
#include "RepairVerb.h"
#include "VerifyVerb.h"
#include "input/Libav.h"
#include "pages/PagesVerb.h"

using namespace kestro::tool;

// Every footer begins with examples: they are shown before the options, the rest behind them.
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

static int Run(int argc, char** argv) {
  CLI::App app(
      "Records video, sound and text into AVI files, plays, extracts, describes, checks and "
      "repairs\nthem.",
      "kestro-avi");
  app.formatter(std::make_shared<ExamplesFirst>());  // the verbs inherit it
  app.set_version_flag("--version", "kestro-avi " KESTRO_VERSION);
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  kestro-avi record -o out.avi movie.mp4\n"
      "  kestro-avi info out.avi\n"
      "  kestro-avi repair cut.avi -o whole.avi\n"
      "  kestro-avi extract --track 0:video.h264 --track 1:sound.wav out.avi\n\n"
      "kestro-avi VERB --help tells more. Exit codes: 0 ok, 1 done with findings, 2 usage, 3 "
      "cannot\n"
      "open or I/O error, 4 not an AVI file or cannot be recorded, 130 interrupted.");

  RecordVerb record;
  PlayVerb play;
  ExtractVerb extract;
  InfoVerb info;
  VerifyVerb verify;
  RepairVerb repair;
  PluginVerb plugin;
  PagesVerb pages(app);
  std::function<int()> run;  // the verb that is asked for
  auto const add = [&](char const* name, char const* text, auto& verb) {
    CLI::App* const sub = app.add_subcommand(name, text);
    verb.AddTo(*sub);
    sub->callback([&run, &verb] { run = [&verb] { return verb.Run(); }; });
  };
  add("record", "Record inputs into an AVI file", record);
  add("play", "Play an AVI file and list its packets", play);
  add("extract", "Write tracks of an AVI file to other files", extract);
  add("info", "Describe AVI files", info);
  add("verify", "Check AVI files", verify);
  add("repair", "Make a playable file of a recording that was cut off", repair);
  add("plugin", "List the plug-in's classes and properties", plugin);
  add("generate", "Write the manual page or a completion", pages);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    Report(
        app.get_subcommands().empty()
            ? "a verb is wanted: record, play, extract, info, verify, repair or plugin (see --help)"
            : error.what());
    return kUsage;
  }
  return run();
}

int main(int argc, char** argv) {
  FillStandardStreams();
  av_log_set_level(AV_LOG_QUIET);  // errors are told in one line by the tool itself
  try {
    return Run(argc, argv);
  } catch (Error const& error) {
    Report(error.what());
    return error.Code();
  } catch (std::exception const& error) {  // out of memory
    Report(error.what());
    return kIo;
  }
}
