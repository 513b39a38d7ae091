#include "stream/IElementWithThread.h"

#include <chrono>
#include <system_error>

#include "base/Console.h"
#include "stream/Callout.h"

namespace kestro::stream {

namespace {
// How long a thread without work sleeps before it checks for work again.
constexpr auto kPoll = std::chrono::milliseconds(20);
}  // namespace

IElementWithThread::~IElementWithThread() = default;

bool IElementWithThread::Start() {
  if (_thread.joinable()) return false;
  std::lock_guard lock(_mutex);
  _stop = _pause = _parked = _wake = false;
  try {
    _thread = std::thread([this] { Run(); });
  } catch (std::system_error const&) {
    return false;
  }
  return true;
}

bool IElementWithThread::Stop() {
  if (!_thread.joinable()) return true;
  if (Inside()) return false;
  {
    std::lock_guard lock(_mutex);
    _stop = true;
  }
  _changed.notify_all();
  _thread.join();
  return true;
}

bool IElementWithThread::Pause() { return Park(true); }

bool IElementWithThread::Resume() { return Park(false); }

bool IElementWithThread::Park(bool pause) {
  std::unique_lock lock(_mutex);
  if (!_thread.joinable() || Inside()) return false;
  _pause = pause;
  _changed.notify_all();
  _changed.wait(lock, [this, pause] { return _parked == pause; });
  return true;
}

void IElementWithThread::Wake() {
  std::lock_guard lock(_mutex);
  _wake = true;
  _changed.notify_all();
}

bool IElementWithThread::Refused() {
  if (Callout::Active()) KESTRO_ERROR("Callout::Active(),a change of state from inside a handler");
  return Callout::Active();
}

void IElementWithThread::Run() {
  Callout const callout;
  _self = std::this_thread::get_id();
  std::unique_lock lock(_mutex);
  while (!_stop) {
    if (_pause) {
      _parked = true;
      _changed.notify_all();
      _changed.wait(lock, [this] { return _stop || !_pause; });
      _parked = false;
      _changed.notify_all();
      continue;
    }
    _wake = false;
    lock.unlock();
    bool const worked = Loop();
    lock.lock();
    if (!worked) _changed.wait_for(lock, kPoll, [this] { return _stop || _pause || _wake; });
  }
}

}  // namespace kestro::stream
