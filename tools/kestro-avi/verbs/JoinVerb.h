// kestro-avi join and clip: make one AVI file of several, or of a part of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "avi/TrackReader.h"
#include "cli/Answer.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "media/OpenGroups.h"
#include "recorder/Recorder.h"
#include "repair/Head.h"
#include "verbs/ExtractRange.h"
#include "verbs/FileTimes.h"
#include "verbs/JoinedAudio.h"

namespace kestro::tool {

// Packets are copied, and nothing is encoded. The files follow each other without gaps: each begins
// where the first video track of the one before ends.
class JoinVerb {
 public:
  enum Kind { kJoin, kClip };
  explicit JoinVerb(Kind kind) : _kind(kind) {}
  void AddTo(Options& options);
  int Run();  // returns an ExitCode; throws Error

 private:
  struct Part {
    std::string path;
    std::int64_t start_ms, length_ms;  // in the joined recording
    std::vector<int> numbers;          // of its tracks, as in Head
    std::optional<avi::StartTime> start;
  };
  void ReadParts();
  void ReadRange();
  void CopyPart(Part const& part, record::Recorder& recorder, Progress& progress);
  std::optional<record::CaptureTime> Captured(std::int64_t time_ns) const;
  void BeginAudio(Part const& part, avi::AviFile const& avi, ExtractRange const* range);
  bool Push(record::Recorder& recorder, avi::AviFile const& avi, std::size_t track, int number,
            avi::Piece const& piece);
  bool ReachAudio(std::int64_t time_ns);
  void EndAudio(Part const& part);
  void CheckStart(avi::AviTrack const& info, avi::Piece const& piece);

  Kind const _kind;
  std::vector<std::string> _files;
  std::string _output, _from, _to, _plugin;
  bool _list = false, _force = false;
  JsonOption _json;
  ProgressOption _progress;

  std::vector<Part> _parts;
  FileTimes _times;       // of the parts
  std::string _software;  // that wrote the first file
  std::vector<std::pair<std::int64_t, std::optional<avi::StartTime>>> _starts;  // by _base_ns
  std::string _tracks;                                                          // of each file
  Head _head;  // of the first file, with the rates that are written
  std::int64_t _from_ms = 0, _to_ms = -1;
  std::int64_t _base_ns = 0;        // when the current file begins
  std::vector<JoinedAudio> _audio;  // by track of the joined file, also for other tracks
  std::optional<OpenGroups> _start;
  std::uint64_t _done = 0;  // bytes
  std::vector<std::string> _warnings, _errors;
  Json _outputs = Json::array();
};

}  // namespace kestro::tool
