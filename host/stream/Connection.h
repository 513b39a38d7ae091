// The state that two linked ports share.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace kestro::stream {

class IPort;

// Keeps both ports alive while a call goes from the output to the input: to destroy a port, first
// cut the connection and wait until the calls in progress have returned.
class Connection {
 public:
  explicit Connection(IPort& input) : _input(input) {}

  // A call through the connection, in progress for as long as the object exists.
  class Call {
   public:
    explicit Call(Connection& connection) : _connection(connection), _open(connection.Enter()) {}
    ~Call() {
      if (_open) _connection.Leave();
    }
    Call(Call const&) = delete;
    Call& operator=(Call const&) = delete;
    explicit operator bool() const { return _open; }  // false if cut
    IPort* operator->() const { return &_connection._input; }

   private:
    Connection& _connection;
    bool const _open;
  };

  bool Live() const {
    std::lock_guard lock(_mutex);
    return !_cut;
  }
  // Whether the connection was cut and no call is in progress.
  bool Dead() const {
    std::lock_guard lock(_mutex);
    return _cut && _calls == 0;
  }
  void Cut(bool wait) {
    std::unique_lock lock(_mutex);
    _cut = true;
    if (wait) _left.wait(lock, [this] { return _calls == 0; });
  }
  void Interrupt(bool on) { _interrupted = on; }
  // Whether calls in progress must stop waiting for something that may never happen.
  bool Interrupted() const {
    std::lock_guard lock(_mutex);
    return _calls > 0 && (_cut || _interrupted);
  }

 private:
  bool Enter() {
    std::lock_guard lock(_mutex);
    if (!_cut) ++_calls;
    return !_cut;
  }
  void Leave() {
    std::lock_guard lock(_mutex);
    if (--_calls == 0) _left.notify_all();
  }

  IPort& _input;
  mutable std::mutex _mutex;
  std::condition_variable _left;
  int _calls = 0;
  bool _cut = false;
  std::atomic<bool> _interrupted{false};
};

}  // namespace kestro::stream
