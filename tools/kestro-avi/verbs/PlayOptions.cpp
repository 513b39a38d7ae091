#include "verbs/PlayOptions.h"

#include <algorithm>

#include "cli/Errors.h"
#include "cli/Text.h"

namespace kestro::tool {

static char const* const kModes[] = {"normal", "fast", "back", "video", "audio"};  // as PlayMode

void PlayOptions::AddTo(Options& options) {
  options.Text("FILE", file, "", "The AVI file").Required();
  options
      .Text("--mode", modeName, "MODE",
            "normal; fast, back: key frames only; video, audio: that track only")
      .OneOf({std::begin(kModes), std::end(kModes)});
  options.Text("--from", _from, "T", "Start at the key frame at or before this time");
  options.Text("--to", _to, "T", "Stop after this time (with --mode back: before it)");
  options.Number("--video", video, 0u, 65535u, "N",
                 "The video track to play: 0 for the first video track");
  auto const seek = options.Texts("--seek", _seeks, "T",
                                  "Seek to this time after --every packets; may be repeated");
  options.Number("--every", every, 1u, 1u << 30, "N", "Number of packets before each seek [1]");
  json.AddTo(options, JsonOption::kLines);
  options.Flag("--realtime", realtime, "Play in real time");
  options.Flag("--follow", follow, "Play on while the file is being recorded").Excludes(seek);
  options.Text("--preload", _preload, "BYTES",
               "Read through a cache that keeps this much of the file's start");
  progress.AddTo(options);
  options.Text("--plugin", plugin, "PATH", "The plug-in or its folder");
  options.Footer(
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
