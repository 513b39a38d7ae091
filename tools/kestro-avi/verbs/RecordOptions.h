// The options of the command record.
#pragma once

#include <string>
#include <vector>

#include "cli/Answer.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "media/Session.h"
#include "recorder/RecorderOptions.h"
#include "verbs/RecordService.h"

namespace kestro::tool {

class RecordOptions {
 public:
  void AddTo(Options& options);  // the object must outlive the command
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
  void AddTracks(Options& options);
  void AddTags(Options& options);
  void AddFiles(Options& options);
  void AddSyncs(Options& options);
  void AddSettings(Options& options);
  void AddService(Options& options);
  void AddRetention(Options& options);
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
