#include "cli/ControlClients.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "cli/ControlRequest.h"

namespace kestro::tool {

static constexpr std::chrono::seconds kPatience{10};

std::vector<pollfd> ControlClients::Events() const {
  std::vector<pollfd> events{{Clock::now() < _pausedUntil ? -1 : _listener, POLLIN, 0}};
  for (Client const& client : _clients)
    events.push_back(
        {client.socket.Number(), static_cast<short>(client.out.empty() ? POLLIN : POLLOUT), 0});
  return events;
}

void ControlClients::Serve(pollfd const* occurred) {
  for (std::size_t i = 0; i < _clients.size(); ++i) Serve(_clients[i], occurred[i + 1].revents);
  auto const gone = [](Client const& client) {
    return client.broken ||
           (client.out.empty() ? client.ended : Clock::now() - client.sent > kPatience);
  };
  _clients.erase(std::remove_if(_clients.begin(), _clients.end(), gone), _clients.end());
  if (occurred[0].revents != 0) Accept();
}

void ControlClients::Accept() {
  for (;;) {
    Client client;
    client.socket = Descriptor(accept4(_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (client.socket.Number() < 0) {  // without descriptors, poll would return at once
      if (errno != EAGAIN) _pausedUntil = Clock::now() + std::chrono::seconds(1);
      return;
    }
    if (_clients.size() < kMost) {
      _clients.push_back(std::move(client));
    } else {
      client.out = _answer({}, "too many clients");
      Send(client);
    }
  }
}

void ControlClients::Serve(Client& client, short occurred) {
  if (occurred == 0) return;
  if (!client.out.empty()) {
    Send(client);
  } else {
    char part[4096];
    ssize_t const got = recv(client.socket.Number(), part, sizeof part, 0);
    if (got < 0) {
      client.broken = errno != EAGAIN && errno != EINTR;
      return;
    }
    client.ended = got == 0;
    client.in.append(part, static_cast<std::size_t>(got));
  }
  AnswerLines(client);
}

void ControlClients::AnswerLines(Client& client) {
  std::string& in = client.in;
  while (client.out.empty() && !client.broken && !in.empty()) {
    std::size_t const end = in.find('\n');
    char const* fault = nullptr;
    if (end == in.npos) {
      if (in.size() <= ControlRequest::kLongestLine && !client.ended) return;
      fault = client.ended ? "the last line has no end" : ControlRequest::Fault(in);
    } else {
      fault = ControlRequest::Fault(std::string_view(in).substr(0, end));
    }
    client.out = _answer(std::string_view(in).substr(0, end), fault);
    client.sent = Clock::now();
    if (fault != nullptr) client.ended = true;
    in.erase(0, fault != nullptr || end == in.npos ? in.npos : end + 1);
    Send(client);
  }
}

void ControlClients::Send(Client& client) {
  ssize_t const sent =
      send(client.socket.Number(), client.out.data(), client.out.size(), MSG_NOSIGNAL);
  if (sent > 0) {
    client.out.erase(0, static_cast<std::size_t>(sent));
    client.sent = Clock::now();
  } else if (sent < 0 && errno != EAGAIN && errno != EINTR) {
    client.broken = true;
  }
}

}  // namespace kestro::tool
