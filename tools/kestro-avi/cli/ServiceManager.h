// Reports the state of the program to the service manager that has started it.
#pragma once

#include <chrono>
#include <string>

#include "cli/Descriptor.h"

namespace kestro::tool {

// Sends the messages of sd_notify. Does nothing without a service manager. Never blocks; messages
// that cannot be sent are lost.
class ServiceManager {
 public:
  // Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, and removes them from the environment:
  // create it before other threads.
  ServiceManager();

  void Send(std::string const& message) const;  // such as "READY=1"; no line ends within values
  explicit operator bool() const { return _socket.Number() >= 0; }
  // The service is restarted when it sends no "WATCHDOG=1" for this long; 0: never.
  std::chrono::microseconds Watchdog() const { return _watchdog; }

 private:
  Descriptor _socket;
  std::string _address;
  std::chrono::microseconds _watchdog{0};
};

}  // namespace kestro::tool
