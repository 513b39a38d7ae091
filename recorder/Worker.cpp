#include "recorder/Worker.h"

#include <future>
#include <memory>
#include <utility>

namespace kestro::record {

Worker::Worker(bool threadless) {
  if (!threadless) _thread = std::thread([this] { Run(true); });
}

void Worker::Post(std::function<void()> task) {
  std::lock_guard lock(_mutex);
  _tasks.push_back(std::move(task));
  _posted.notify_one();
}

void Worker::RunPosted() {
  if (!_thread.joinable()) Run(false);
}

void Worker::Drain() {
  auto const done = std::make_shared<std::promise<void>>();
  Post([done] { done->set_value(); });
  RunPosted();
  done->get_future().wait();
}

void Worker::Finish() {
  {
    std::lock_guard lock(_mutex);
    _finishing = true;
    _posted.notify_one();
  }
  if (_thread.joinable()) return _thread.join();
  Run(false);
  std::unique_lock lock(_mutex);
  _posted.wait(lock, [this] { return !_running; });  // on another thread
}

void Worker::Run(bool wait) {
  std::unique_lock lock(_mutex);
  if (std::exchange(_running, true)) return;
  for (;;) {
    if (wait) _posted.wait(lock, [this] { return !_tasks.empty() || _finishing; });
    if (_tasks.empty()) break;
    auto task = std::move(_tasks.front());
    _tasks.pop_front();
    lock.unlock();
    _runner = std::this_thread::get_id();
    task();
    _runner = std::thread::id();
    task = nullptr;  // what it held may take locks
    lock.lock();
  }
  _running = false;
  _posted.notify_all();
}

}  // namespace kestro::record
