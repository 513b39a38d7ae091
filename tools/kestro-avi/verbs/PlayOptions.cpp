#include "verbs/PlayOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/Errors.h"
#include "cli/Suggest.h"
#include "cli/Text.h"

namespace kestro::tool {

static char const* const kModes[] = {"normal", "fast", "back", "video", "audio"};  // as PlayMode

void PlayOptions::AddTo(CLI::App& app) {
  app.add_option("FILE", file, "The AVI file")->required()->type_name("");
  app.add_option("--mode", modeName,
                 "normal; fast, back: key frames only; video, audio: that track only")
      ->type_name("MODE")
      ->check(OneOf({std::begin(kModes), std::end(kModes)}));
  app.add_option("--from", _from, "Start at the key frame at or before this time")->type_name("T");
  app.add_option("--to", _to, "Stop after this time (with --mode back: before it)")->type_name("T");
  app.add_option("--video", video, "The video track to play: 0 for the first video track")
      ->type_name("N")
      ->check(CLI::Range(0u, 65535u));
  auto* const seek =
      app.add_option("--seek", _seeks, "Seek to this time after --every packets; may be repeated")
          ->type_name("T")
          ->take_all()
          ->expected(1)
          ->allow_extra_args(false);
  app.add_option("--every", every, "Number of packets before each seek [1]")
      ->type_name("N")
      ->check(CLI::Range(1u, 1u << 30));
  json.AddTo(app, JsonOption::kLines);
  app.add_flag("--realtime", realtime, "Play in real time");
  app.add_flag("--follow", follow, "Play on while the file is being recorded")->excludes(seek);
  app.add_option("--preload", _preload,
                 "Read through a cache that keeps this much of the file's start")
      ->type_name("BYTES");
  progress.AddTo(app);
  app.add_option("--plugin", plugin, "The plug-in or its folder")->type_name("PATH");
  app.footer(
      "Examples:\n"
      "  kestro-avi play out.avi\n"
      "  kestro-avi play --mode back --from 1:30 --to 1:00 out.avi\n"
      "  kestro-avi play --realtime --preload 8M /mnt/share/out.avi\n"
      "  kestro-avi play --follow --json out.avi\n"
      "  kestro-avi play --json out.avi | jq 'select(.key) | .pts_ms'\n\n"
      "Times are seconds or [h:]m:s. At the end of the stream the next seek happens at once.");
}

void PlayOptions::Check() {
  auto const ms = [](char const* option, std::string const& text) {
    return ParseTime_ns(option, text) / 1000000;
  };
  if (!_preload.empty()) preload = static_cast<std::int64_t>(ParseSize("--preload", _preload));
  if (!_from.empty()) from_ms = ms("--from", _from);
  if (!_to.empty()) to_ms = ms("--to", _to);
  for (std::string const& text : _seeks) seeks_ms.push_back(ms("--seek", text));
  mode = static_cast<Mode>(std::find(std::begin(kModes), std::end(kModes), modeName) -
                           std::begin(kModes));
  if (follow && mode == Mode::kBack) throw Error(kUsage, "--follow: cannot play back");
}

}  // namespace kestro::tool
