// A loop on a thread of its own.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/Types.h"

namespace kestro::stream {

// Calls Loop again and again on its own thread, between Start and Stop. The class that
// defines Loop stops the thread in its destructor. The operations are for one control thread and
// wait for the turn under way; from inside Loop they do nothing and return false.
class KESTRO_API IElementWithThread {
 public:
  virtual ~IElementWithThread();

 protected:
  bool Start();  // false when it runs already, or there is no thread to be had
  bool Stop();   // true without a thread
  bool Pause();
  bool Resume();
  void Wake();  // ends a wait for work, from any thread

  // Whether the state of an element with a thread may not be changed from here, with an error line:
  // inside a packet or message handler, where waiting for the thread could wait for ever.
  static bool Refused();
  bool Inside() const { return _self == std::this_thread::get_id(); }  // of the element's thread

  // One turn. False: nothing to do until Wake, or for a few milliseconds.
  virtual bool Loop() = 0;

 private:
  void Run();
  bool Park(bool pause);

  std::mutex _mutex;
  std::condition_variable _changed;
  std::thread _thread;
  std::atomic<std::thread::id> _self{};
  bool _stop = false, _pause = false, _parked = false, _wake = false;
};

}  // namespace kestro::stream
