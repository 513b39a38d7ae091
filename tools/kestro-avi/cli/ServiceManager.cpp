#include "cli/ServiceManager.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace kestro::tool {

static std::string TakeVariable(char const* name) {
  char const* const value = std::getenv(name);
  std::string text = value == nullptr ? "" : value;
  unsetenv(name);
  return text;
}

ServiceManager::ServiceManager() : _address(TakeVariable("NOTIFY_SOCKET")) {
  std::string const period = TakeVariable("WATCHDOG_USEC"), process = TakeVariable("WATCHDOG_PID");
  if (_address.empty() || (_address[0] != '/' && _address[0] != '@') ||
      _address.size() > sizeof sockaddr_un{}.sun_path)
    return;
  _socket = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (process.empty() || process == std::to_string(getpid()))
    _watchdog = std::chrono::microseconds(std::strtoll(period.c_str(), nullptr, 10));
}

void ServiceManager::Send(std::string const& message) const {
  if (_socket.Number() < 0) return;
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  std::memcpy(to.sun_path, _address.data(), _address.size());
  if (to.sun_path[0] == '@') to.sun_path[0] = '\0';  // a name without a file
  auto const length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + _address.size());
  sendto(_socket.Number(), message.data(), message.size(), MSG_NOSIGNAL,
         reinterpret_cast<sockaddr const*>(&to), length);
}

}  // namespace kestro::tool
