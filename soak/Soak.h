// A camera that records for days, as fast as it goes, while all that can happen to it happens.
#pragma once

#include <atomic>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "recorder/Recorder.h"
#include "soak/Card.h"
#include "soak/Checker.h"

namespace kestro::soak {

class Soak {
 public:
  Soak(unsigned seed, std::FILE* out);  // prints to `out`

  // False when something was wrong; it has been printed.
  bool Run(unsigned hours);

 private:
  bool Begin();
  void End();
  void PushGroup();
  void Disturb();
  void MarkEvent();
  void EndProtections();
  void LoseSource();
  void CheckHour(bool early);
  void Print(unsigned hour);
  void HandleEvent(record::Event const& event);
  void Expect(record::Result const& result, char const* what);
  bool OneIn(unsigned groups) { return _random() % groups == 0; }

  std::FILE* const _out;
  std::mt19937 _random;
  Card _card;
  Checker _checker;
  std::unique_ptr<record::Recorder> _recorder;
  unsigned _sessions = 0;
  std::uint64_t _number = 0;                    // of the next packet
  std::atomic<std::int64_t> _now_ns, _jump_ns;  // monotonic clock; the wall clock is off by
  unsigned _fullFor = 0;                        // groups until the card has space again
  std::uint64_t _losses = 0, _fills = 0, _jumps = 0;
  long _memory = 0, _files = 0;          // KiB; descriptors
  long _mostMemory = 0, _mostFiles = 0;  // in the first quarter of the time
  record::Status _total;                 // of ended recordings

  std::mutex _mutex;  // protects what follows
  std::deque<std::string> _protected;
  std::uint64_t _deleted = 0, _warnings = 0;
  std::string _lastWarning;
};

}  // namespace kestro::soak
