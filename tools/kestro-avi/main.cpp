// kestro-avi: records, describes, checks and repairs AVI files with the plug-in.

#include <CLI/CLI.hpp>
#include <exception>
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
  PagesVerb pages;
  CLI::App* recordApp = app.add_subcommand("record", "Record inputs into an AVI file");
  CLI::App* playApp = app.add_subcommand("play", "Play an AVI file and list its packets");
  CLI::App* extractApp =
      app.add_subcommand("extract", "Write tracks of an AVI file to other files");
  CLI::App* infoApp = app.add_subcommand("info", "Describe AVI files");
  CLI::App* verifyApp = app.add_subcommand("verify", "Check AVI files");
  CLI::App* repairApp =
      app.add_subcommand("repair", "Make a playable file of a recording that was cut off");
  CLI::App* pluginApp = app.add_subcommand("plugin", "List the plug-in's classes and properties");
  CLI::App* pagesApp = app.add_subcommand("generate", "Write the manual page or a completion");
  record.AddTo(*recordApp);
  play.AddTo(*playApp);
  extract.AddTo(*extractApp);
  info.AddTo(*infoApp);
  verify.AddTo(*verifyApp);
  repair.AddTo(*repairApp);
  plugin.AddTo(*pluginApp);
  pages.AddTo(*pagesApp);
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
  if (*recordApp) return record.Run();
  if (*playApp) return play.Run();
  if (*extractApp) return extract.Run();
  if (*infoApp) return info.Run();
  if (*verifyApp) return verify.Run();
  if (*repairApp) return repair.Run();
  if (*pagesApp) return pages.Run(app);
  return plugin.Run();
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
