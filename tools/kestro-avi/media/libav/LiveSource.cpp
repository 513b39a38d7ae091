#include "media/libav/LiveSource.h"

#include <algorithm>
#include <utility>

#include "cli/Address.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/libav/PacketTimes.h"

namespace kestro::tool {

static constexpr std::int64_t kSecond_ns = 1000000000;
// Between attempts to open a lost source. The pauses grow until one has delivered for a while.
static constexpr std::int64_t kFirstPause_ns = kSecond_ns / 2, kLongestPause_ns = 30 * kSecond_ns;
static constexpr std::int64_t kSteady_ns = 30 * kSecond_ns;
// How long to watch when packets come, because servers send the first ones in a burst.
static constexpr std::int64_t kSettling_ns = kSecond_ns;
// How long others wait for the first key frame of a source that was opened again.
static constexpr std::int64_t kLongestNear_ns = 10 * kSecond_ns;
static constexpr std::size_t kMostBytes = 64 << 20;
static constexpr auto kMoment = std::chrono::milliseconds(50);

static std::int64_t Time_ns(AVPacket const& packet, AVRational timeBase) {
  return av_rescale_q(packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts, timeBase,
                      kNanoseconds);
}

LiveSource::LiveSource(std::string const& address, InputOptions const& options)
    : _address(address), _options(options), _patience(options.interrupted, options.stall_ns) {
  _connection = Open();
  Publish();
  Accept();
  _thread = std::thread([this] { Run(); });
}

LiveSource::~LiveSource() {
  {
    std::lock_guard lock(_mutex);
    _stop = true;
  }
  _patience.End();
  _changed.notify_all();
  _thread.join();
}

bool LiveSource::StateIs(State state) const {
  std::lock_guard lock(_mutex);
  return _state == state;
}

int LiveSource::Read(AVPacket& packet) {
  std::unique_lock lock(_mutex);
  if (!_changed.wait_for(lock, kMoment, [this] { return !_queue.empty(); })) return AVERROR(EAGAIN);
  Item const item = std::move(_queue.front());
  _queue.pop_front();
  if (item.packet) {
    _bytes -= static_cast<std::size_t>(item.packet->size);
    av_packet_move_ref(&packet, item.packet.get());
  } else {
    _state = kLost;
  }
  _changed.notify_all();
  return item.error;
}

bool LiveSource::Near() const {
  std::int64_t const opened_ns = _patience.Probed_ns();
  return _trying_ns != 0 && opened_ns >= _trying_ns &&
         Patience::Now_ns() - opened_ns < kLongestNear_ns;
}

bool LiveSource::Accept() {
  std::lock_guard lock(_mutex);
  if (_state != kBack) return false;
  _opened = std::move(_next);
  _state = kOpen;
  return true;
}

void LiveSource::Reject(std::string const& reason) {
  std::lock_guard lock(_mutex);
  _reason = reason;
  _rejected = true;
  if (_state != kGone) _state = kLost;
}

std::string LiveSource::Reason() const {
  std::lock_guard lock(_mutex);
  return _reason;
}

unsigned LiveSource::Attempts() const {
  std::lock_guard lock(_mutex);
  return _attempts;
}

std::optional<std::int64_t> LiveSource::Shift_ns() const {
  std::lock_guard lock(_mutex);
  return _clock.Shift_ns();
}

std::optional<std::int64_t> LiveSource::First_ns() const {
  std::lock_guard lock(_mutex);
  return _first_ns;
}

void LiveSource::Run() {
  do Deliver();
  while (Reopen());
}

std::string LiveSource::Describe(int error) const {
  if (error == AVERROR_EXIT && !_patience.Ended())
    return "delivered nothing for " + Seconds_ns(_options.stall_ns);
  if (error == AVERROR_INPUT_CHANGED) return "its streams have changed";
  return error == AVERROR_EOF ? "the stream ended" : LibavError(error);
}

// Queues the packets of a connection until it ends.
void LiveSource::Deliver() {
  std::int64_t const begin_ns = Patience::Now_ns();
  PacketPtr packet;
  int error = 0;
  while ((error = ReadPacket(*_connection, packet)) >= 0)
    if (packet && !Push(std::move(packet))) break;
  _connection.reset();
  std::lock_guard lock(_mutex);
  if (Patience::Now_ns() - begin_ns >= kSteady_ns) _pause_ns = 0;
  if (_rejected || _state == kBack) {  // never accepted
    if (!std::exchange(_rejected, false)) _reason = Describe(error);
    _queue.clear();
    _bytes = 0;
    _state = kLost;
  } else {
    _reason = Describe(error);
    _lost_ns = Patience::Now_ns();
    _attempts = 0;
    _state = kEnding;
    _queue.push_back({nullptr, error < 0 ? error : AVERROR_EXIT});
  }
  _changed.notify_all();
}

// Returns false when the connection is to be closed.
bool LiveSource::Push(PacketPtr packet) {
  std::unique_lock lock(_mutex);
  _changed.wait(lock, [this] { return _bytes < kMostBytes || _rejected || _stop; });
  if (_rejected || _stop) return false;
  _clock = _connection->clock;
  _first_ns = _connection->first_ns;
  _bytes += static_cast<std::size_t>(packet->size);
  _queue.push_back({std::move(packet)});
  _changed.notify_all();
  return true;
}

// The next packet of a recorded stream; null for others.
int LiveSource::ReadPacket(Connection& connection, PacketPtr& packet) {
  auto& [format, live, at, video, ahead, notes, findings] = connection.opened;
  if (!ahead.empty()) {
    packet = std::move(ahead.front());
    ahead.pop_front();
  } else {
    packet.reset(av_packet_alloc());
    _patience.Begin();
    int got;
    while ((got = av_read_frame(format.get(), packet.get())) == AVERROR(EAGAIN)) {
      if (_patience.Over()) return AVERROR_EXIT;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (got < 0) return got;
    if (_patience.TimedOut()) return AVERROR_EXIT;  // an unfinished frame that it still had
  }
  auto const stream = static_cast<unsigned>(packet->stream_index);
  AVStream const& from = *format->streams[stream];
  bool const added = stream >= connection.streams;
  if (added && from.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) return AVERROR_INPUT_CHANGED;
  if (added || !IsRecorded(from)) {
    packet.reset();
    return 0;
  }
  DropWildTimes(*packet, from.time_base);
  if (packet->dts == AV_NOPTS_VALUE && packet->pts == AV_NOPTS_VALUE) return 0;
  std::int64_t const time_ns = Time_ns(*packet, from.time_base), now_ns = Patience::Now_ns();
  if (!connection.first_ns) {  // it had to wait until the streams were known
    connection.first_ns = time_ns;
    connection.clock.Add(time_ns, now_ns - (avi::ClockAnchor::Now::Read().boot_ns - at.boot_ns));
  }
  connection.clock.Add(time_ns, now_ns);
  return 0;
}

std::unique_ptr<LiveSource::Connection> LiveSource::Open() {
  auto connection = std::make_unique<Connection>();
  if (_address.find("listen") != _address.npos)
    _patience.BeginUnlimited();  // a server waits for its client
  else
    _patience.Begin();
  connection->opened = OpenStreams(_address, _options, _patience);
  connection->streams = connection->opened.format->nb_streams;
  if (!connection->opened.video.empty()) connection->key = connection->opened.video.begin()->first;
  return connection;
}

// Reads until the first key frame, and for long enough to relate the clocks.
bool LiveSource::ReadFirst(Connection& connection) {
  std::int64_t const begin_ns = Patience::Now_ns();
  bool started = connection.key < 0;
  std::optional<std::int64_t> first_ns;
  PacketPtr packet;
  while (!started || Patience::Now_ns() - begin_ns < kSettling_ns) {
    if (int const error = ReadPacket(connection, packet); error < 0) {
      std::lock_guard lock(_mutex);
      _reason = Describe(error);
      return false;
    }
    if (!packet) continue;
    bool const key = packet->stream_index == connection.key && packet->flags & AV_PKT_FLAG_KEY;
    if (!started && !key) continue;
    started = true;
    AVStream const& stream = *connection.opened.format->streams[packet->stream_index];
    if (!first_ns) first_ns = Time_ns(*packet, stream.time_base);
    connection.bytes += static_cast<std::size_t>(packet->size);
    connection.first.push_back(std::move(packet));
  }
  connection.first_ns = first_ns;
  return true;
}

// Hands over what has been read of a new connection.
void LiveSource::Publish() {
  Connection& from = *_connection;
  std::lock_guard lock(_mutex);
  _next = {};
  _next.format = CopyStreams(*from.opened.format);
  _next.live = true;
  _next.at = from.opened.at;
  _next.video = from.opened.video;
  _next.notes = from.opened.notes;
  _next.findings = from.opened.findings;
  for (PacketPtr& packet : from.first) _queue.push_back({std::move(packet)});
  from.first.clear();
  _bytes += from.bytes;
  _clock = from.clock;
  _first_ns = from.first_ns;
  _state = kBack;
  _changed.notify_all();
}

bool LiveSource::Connect() {
  {
    std::lock_guard lock(_mutex);
    ++_attempts;
  }
  try {
    _trying_ns = Patience::Now_ns();
    auto connection = Open();
    if (ReadFirst(*connection)) _connection = std::move(connection);
  } catch (Error const& error) {
    std::string const name = Hidden(_address) + ": ";
    std::string text = error.what();
    if (text.compare(0, name.size(), name) == 0) text.erase(0, name.size());
    std::lock_guard lock(_mutex);
    _reason = text;
  }
  if (_connection) Publish();
  _trying_ns = 0;
  return _connection != nullptr;
}

// Returns false when interrupted or stopped.
bool LiveSource::Pause(std::int64_t until_ns) {
  std::unique_lock lock(_mutex);
  while (!_stop && !_options.interrupted() && Patience::Now_ns() < until_ns)
    _changed.wait_for(lock, kMoment);
  return !_stop && !_options.interrupted();
}

// Returns false when it is given up.
bool LiveSource::Reopen() {
  while (StateIs(kEnding))
    if (!Pause(Patience::Now_ns() + kSecond_ns / 50)) return false;
  std::int64_t const end_ns =
      _options.reconnect_ns < 0 ? INT64_MAX : _lost_ns + _options.reconnect_ns;
  do {
    _pause_ns = std::clamp(2 * _pause_ns, kFirstPause_ns, kLongestPause_ns);
    if (!Pause(std::min(Patience::Now_ns() + _pause_ns, end_ns))) return false;
    if (Patience::Now_ns() >= end_ns) {
      std::lock_guard lock(_mutex);
      _state = kGone;
      return false;
    }
  } while (!Connect());
  return true;
}

}  // namespace kestro::tool
