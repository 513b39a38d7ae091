// What a recorder does besides storing packets.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace kestro::record {

// Runs tasks one after the other: on a thread of its own or, threadless, whenever it is told to.
class Worker {
 public:
  explicit Worker(bool threadless);
  ~Worker() { Finish(); }

  void Post(std::function<void()> task);  // any thread; tasks throw nothing
  // Threadless: runs what was posted, unless this is called by a task.
  void RunPosted();
  // Returns when all is done; nothing is posted from then on, but by tasks. Not called by a task.
  void Finish();
  bool Inside() const { return std::this_thread::get_id() == _runner; }  // called by a task

 private:
  void Run(bool wait);

  std::mutex _mutex;  // of what follows
  std::condition_variable _posted;
  std::deque<std::function<void()>> _tasks;
  bool _running = false, _finishing = false;

  std::atomic<std::thread::id> _runner{};  // of the task that runs
  std::thread _thread;
};

}  // namespace kestro::record
