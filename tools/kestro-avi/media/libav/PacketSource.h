// Where the packets of an input come from.
#pragma once

#include <thread>

#include "media/libav/OpenedInput.h"

namespace kestro::tool {

class PacketSource {
 public:
  virtual ~PacketSource() = default;
  OpenedInput& Opened() { return _opened; }
  // As av_read_frame. AVERROR(EAGAIN): nothing has come for a moment.
  virtual int Read(AVPacket& packet) = 0;

 protected:
  OpenedInput _opened;
};

// Reads a file or a pipe. Throws Error when it cannot be opened or recorded.
class FileSource : public PacketSource {
 public:
  FileSource(std::string const& address, InputOptions const& options)
      : _patience(options.interrupted) {
    _opened = OpenStreams(address, options, _patience);
  }
  int Read(AVPacket& packet) override {
    if (!_opened.ahead.empty()) {
      av_packet_move_ref(&packet, _opened.ahead.front().get());
      _opened.ahead.pop_front();
      return 0;
    }
    int const got = av_read_frame(_opened.format.get(), &packet);
    if (got == AVERROR(EAGAIN)) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return got;
  }

 private:
  Patience _patience;
};

}  // namespace kestro::tool
