// kestro-avi record: records inputs into AVI files.
#pragma once

#include <map>
#include <string>

#include "cli/Options.h"
#include "media/Session.h"
#include "recorder/Recorder.h"
#include "verbs/OpenStarts.h"
#include "verbs/RecordOptions.h"
#include "verbs/RecordService.h"

namespace kestro::tool {

class RecordVerb {
 public:
  void AddTo(Options& options) { _options.AddTo(options); }
  int Run();  // returns an ExitCode; throws Error

 private:
  void CheckProperties() const;
  void HandleEvent(record::Event const& event);
  bool IsService() const;
  void HandleProblem(record::Event const& event);
  void WriteBegin(record::Tracks const& tracks) const;
  void WriteEvents(Session& session, RecordService& service);
  void WriteDrops(record::Recorder const& recorder, std::int64_t time_ns);
  void SetTotals(record::Status const& status) const;
  void ReportNotes(Session const& session, record::Recorder const& recorder) const;
  Progress NewProgress(Session const& session) const;
  bool ChangeTracks(Session const& session, record::Recorder& recorder, RecordService& service);
  int Record(RecordService& service);
  bool PushAll(Session& session, record::Recorder& recorder, RecordService& service,
               Progress& progress);
  int Finish(Session& session, record::Recorder& recorder, RecordService& service,
             Progress& progress, bool complete);

  RecordOptions _options;
  OpenStarts _starts;
  Notices _warnings, _errors;                     // from HandleEvent, as the next three
  bool _warned = false;                           // at once
  std::uint64_t _bytes = 0;                       // of closed files
  std::map<std::string, std::int64_t> _skews_ns;  // of files that are not closed yet
  std::uint64_t _gaps = 0, _droppedGroups = 0;
  std::int64_t _lost_ms = 0;
};

}  // namespace kestro::tool
