// kestro-avi record: records inputs into AVI files.
#pragma once

#include <string>
#include <vector>

#include "media/Session.h"
#include "recorder/Recorder.h"
#include "verbs/OpenStarts.h"
#include "verbs/RecordOptions.h"

namespace kestro::tool {

class RecordVerb {
 public:
  void AddTo(CLI::App& app) { _options.AddTo(app); }
  int Run();  // returns an ExitCode; throws Error

 private:
  void CheckProperties() const;
  void HandleEvent(record::Event const& event);
  void WriteHash(std::string const& path);
  void ReportNotes(Session const& session, record::Recorder const& recorder) const;
  Progress NewProgress(Session const& session) const;
  bool Record(Session& session, record::Recorder& recorder, Progress& progress);
  int Finish(Session const& session, record::Recorder& recorder, Progress& progress,
             bool complete) const;

  RecordOptions _options;
  OpenStarts _starts;
  std::vector<std::string> _warnings, _errors;  // from HandleEvent
};

}  // namespace kestro::tool
