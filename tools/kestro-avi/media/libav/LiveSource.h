// Reads a live input on a thread of its own, and opens it again after it was lost.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

#include "media/libav/ArrivalClock.h"
#include "media/libav/PacketSource.h"

namespace kestro::tool {

// A source that ends, fails or delivers nothing for InputOptions::stall_ns is lost, and Read
// reports this once, after all packets that came before. Then:
//
//   while (!source.Back()) ...;        // delivers again: a key frame has come
//   source.Accept();                   // Read and Opened continue with the new streams
//
// or Gone() once it has been away for InputOptions::reconnect_ns. The functions are called by one
// thread.
class LiveSource : public PacketSource {
 public:
  // Opens the source. Throws Error.
  LiveSource(std::string const& address, InputOptions const& options);
  ~LiveSource() override;

  int Read(AVPacket& packet) override;  // waits for a moment at most

  // It was opened a moment ago and may soon be back: its first key frame is no earlier than that.
  bool Near() const;
  bool Back() const { return StateIs(kBack); }
  bool Gone() const { return StateIs(kGone); }
  bool Accept();                           // false: it was lost again
  void Reject(std::string const& reason);  // what has come back: it counts as lost again

  // Why the source was lost the last time, or why it could not be opened again.
  std::string Reason() const;
  unsigned Attempts() const;  // to open it since then
  // By how much to move packet times to get the time of the steady clock.
  std::optional<std::int64_t> Shift_ns() const;
  // The time of the first packet, or after Back of the first key frame; empty before it comes.
  std::optional<std::int64_t> First_ns() const;

 private:
  enum State {
    kOpen,
    kEnding,  // lost, but Read has not reported it
    kLost,
    kBack,
    kGone
  };
  struct Item {
    PacketPtr packet;  // null: the source was lost
    int error = 0;
  };
  // One connection. Only the thread reads from it.
  struct Connection {
    OpenedInput opened;
    unsigned streams = 0;         // when it was opened
    int key = -1;                 // the video stream to start with
    std::deque<PacketPtr> first;  // what was read before it counts as back
    std::size_t bytes = 0;        // of them
    ArrivalClock clock;
    std::optional<std::int64_t> first_ns;
  };

  bool StateIs(State state) const;
  void Run();
  void Deliver();
  bool Push(PacketPtr packet);
  bool Reopen();
  bool Pause(std::int64_t until_ns);
  bool Connect();
  std::unique_ptr<Connection> Open();
  bool ReadFirst(Connection& connection);
  int ReadPacket(Connection& connection, PacketPtr& packet);
  void Publish();
  std::string Describe(int error) const;

  std::string const _address;
  InputOptions const _options;
  Patience _patience;
  std::unique_ptr<Connection> _connection;  // of the thread; null while the source is lost
  std::int64_t _pause_ns = 0, _lost_ns = 0;
  std::atomic<std::int64_t> _trying_ns{0};  // since when it is opened again; 0: it is not

  mutable std::mutex _mutex;  // for all members below
  std::condition_variable _changed;
  State _state = kOpen;
  std::deque<Item> _queue;
  std::size_t _bytes = 0;
  OpenedInput _next;  // the streams that are back
  std::string _reason;
  unsigned _attempts = 0;
  ArrivalClock _clock;
  std::optional<std::int64_t> _first_ns;
  bool _rejected = false, _stop = false;

  std::thread _thread;
};

}  // namespace kestro::tool
