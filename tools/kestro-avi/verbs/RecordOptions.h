// The options of the command record.
#pragma once

#include <string>
#include <vector>

#include "cli/Answer.h"
#include "cli/Progress.h"
#include "media/Session.h"
#include "recorder/RecorderOptions.h"
#include "verbs/RecordService.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class RecordOptions {
 public:
  void AddTo(CLI::App& app);  // the object must outlive the app
  // Sets the members below from the command line. Throws Error.
  void Check();

  std::vector<std::string> addresses;
  std::string plugin;
  bool realtime = false;
  JsonOption json;
  InputOptions input;
  Selection selection;
  record::RecorderOptions recorder;
  ProgressOption progress;
  ServiceOptions service;

 private:
  void AddTracks(CLI::App& app);
  void AddTags(CLI::App& app);
  void AddFiles(CLI::App& app);
  void AddSyncs(CLI::App& app);
  void AddSettings(CLI::App& app);
  void AddService(CLI::App& app);
  void AddRetention(CLI::App& app);
  void CheckSync();
  void CheckRetention();

  std::vector<std::string> _settings, _maps;
  std::string _strdFile, _rate, _start, _duration, _segmentSize, _segmentTime, _junk;
  std::string _startTime;
  bool _noStartTime = false;
  std::string _stallTimeout, _reconnect;
  std::string _onGap = "cut", _maxSkew, _textForm = "plain";
  std::string _sync = "off", _interval, _reserve, _reserveTime;
  bool _noVideo = false, _noAudio = false, _noText = false, _frontOnly = false;
  int _spillSeconds = -1;
  std::string _keepFree, _keepBytes, _keepAge, _before, _after;
  bool _noProtect = false;
};

}  // namespace kestro::tool
