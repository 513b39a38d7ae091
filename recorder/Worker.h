// Runs a recorder's background tasks.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace kestro::record {

// Runs tasks one after the other: on its own thread or, if threadless, when RunPosted is called.
class Worker {
 public:
  explicit Worker(bool threadless);
  ~Worker() { Finish(); }

  void Post(std::function<void()> task);  // any thread; tasks must not throw
  // Threadless: runs the posted tasks. Does nothing when a task calls it.
  void RunPosted();
  void Drain();  // waits until the tasks posted so far are done; must not be called by a task
  // Waits until all tasks are done. After this only tasks may post. Must not be called by a task.
  void Finish();
  bool CalledByTask() const { return std::this_thread::get_id() == _runner; }

 private:
  void Run(bool wait);

  std::mutex _mutex;  // protects what follows
  std::condition_variable _posted;
  std::deque<std::function<void()>> _tasks;
  bool _running = false, _finishing = false;

  std::atomic<std::thread::id> _runner{};  // the thread that runs a task
  std::thread _thread;
};

}  // namespace kestro::record
