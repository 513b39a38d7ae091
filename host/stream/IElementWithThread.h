// A loop on its own thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/Types.h"

namespace kestro::stream {

// Calls Loop repeatedly on its own thread, between Start and Stop. The class that defines Loop must
// stop the thread in its destructor. Start, Stop, Pause and Resume are for one control thread and
// wait for the current turn of the loop to end. From inside Loop they do nothing and return false.
class KESTRO_API IElementWithThread {
 public:
  virtual ~IElementWithThread();

 protected:
  bool Start();  // false if it is running already or no thread could be started
  bool Stop();   // true if there is no thread
  bool Pause();
  bool Resume();
  void Wake();  // ends a wait for work; any thread may call it

  // Returns true, and prints an error line, inside a packet or message handler. The state of an
  // element with a thread must not be changed there, because waiting for the thread could deadlock.
  static bool Refused();
  bool Inside() const { return _self == std::this_thread::get_id(); }  // called on the thread

  // One turn of the loop. Returns false if there is nothing to do until Wake, or for a few
  // milliseconds.
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
