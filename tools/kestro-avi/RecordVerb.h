// kestro-avi record: real video and sound into AVI files.
#pragma once

#include <string>

#include "Feed.h"
#include "RecordOptions.h"
#include "input/Session.h"

namespace kestro::tool {

class RecordVerb {
 public:
  void AddTo(CLI::App& app) { _options.AddTo(app); }
  int Run();  // an ExitCode; throws Error

 private:
  void Announce(Session const& session) const;
  Progress Watch(Session const& session) const;
  bool Record(Session& session, Feed& feed, Progress& progress) const;
  int Finish(Session const& session, Feed& feed, Segments& segments, Progress& progress,
             bool complete) const;

  RecordOptions _options;
};

}  // namespace kestro::tool
