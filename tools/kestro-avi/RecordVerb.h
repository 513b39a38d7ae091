// kestro-avi record: real video and sound into an AVI file.
#pragma once

#include <string>
#include <vector>

#include "Recorder.h"
#include "input/Session.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class RecordVerb {
 public:
  void AddTo(CLI::App& app);  // describes the verb; the object outlives the app's use
  int Run();                  // an ExitCode; throws Error

 private:
  void Check();
  void CheckOutput() const;
  bool Record(Session& session, Recorder& recorder);
  int Finish(Session const& session, Recorder& recorder, bool complete);
  std::string Counted() const;

  std::vector<std::string> _addresses, _settings;
  std::string _output, _plugin, _rate, _start, _duration;
  bool _noVideo = false, _noAudio = false, _noText = false, _realtime = false, _force = false;
  int _spillSeconds = -1;
  InputOptions _input;
  Timeline _timeline;
  RecorderOptions _recorder;

  std::uint64_t _packets = 0, _bytes = 0;
  std::int64_t _end_ns = 0;  // of the recording so far
};

}  // namespace kestro::tool
