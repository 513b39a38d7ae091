// The clients of a control socket.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Descriptor.h"

namespace kestro::tool {

// Accepts clients and answers their lines, one line each, in order. Never blocks: a client's next
// line is read once it has taken the answers before, and a client that takes none for 10 s is
// dropped.
//
//   for (;;) {
//     std::vector<pollfd> events = clients.Events();
//     poll(events.data(), events.size(), timeout);
//     clients.Serve(events.data());
//   }
class ControlClients {
 public:
  static constexpr std::size_t kMost = 8;

  // Returns the answer to a line, with its end. `fault`: the line is broken, for this reason.
  using Answer = std::function<std::string(std::string_view line, char const* fault)>;
  // `listener`: the listening socket, or negative for none.
  ControlClients(int listener, Answer answer) : _listener(listener), _answer(std::move(answer)) {}

  std::vector<pollfd> Events() const;  // to wait for
  void Serve(pollfd const* occurred);  // in the order of Events

 private:
  using Clock = std::chrono::steady_clock;
  struct Client {
    Descriptor socket;
    std::string in, out;
    bool ended = false;  // nothing more is read
    bool broken = false;
    Clock::time_point sent = Clock::now();  // when the client last took something
  };

  void Accept();
  void Serve(Client& client, short occurred);
  void AnswerLines(Client& client);
  static void Send(Client& client);

  int const _listener;
  Answer const _answer;
  std::vector<Client> _clients;
  Clock::time_point _pausedUntil;  // accepts nobody
};

}  // namespace kestro::tool
