#include "Recorder.h"

#include <algorithm>

#include "base/IClass.h"

namespace kestro::bench {

using stream::IStatus;

unsigned NullIO::Write(void const*, unsigned size) {
  _position += size;
  _size = std::max(_size, _position);
  return size;
}

bool NullIO::Truncate(base::int64 size) {
  _size = size;
  return true;
}

Recorder::Recorder(Mix const& mix, char const* muxer, std::nullptr_t) : _mix(mix) {
  mix.Units();
  _muxer = base::Make<stream::IMuxer>(muxer);
  Require(_muxer != nullptr, "the plug-in has no such muxer");
  Require(_muxer->Set("constFrameRate", base::Fraction(Mix::kFps, 1)), "no frame rate");
  _video = _muxer->AddInput();
  _audio = _muxer->AddInput();
}

Recorder::Recorder(Mix const& mix, base::IO& io, char const* muxer)
    : Recorder(mix, muxer, nullptr) {
  Require(_muxer->Set("io", &io), "the muxer does not accept a stream");
}

Recorder::Recorder(Mix const& mix, char const* path) : Recorder(mix, "avi-muxer", nullptr) {
  Require(_muxer->Set("path", path), "the muxer does not accept a path");
}

void Recorder::AddQueue() {
  _queue = base::Make<stream::PacketQueue>("packet-queue");
  Require(_queue != nullptr, "the host has no queue");
  for (stream::IPort** port : {&_video, &_audio}) {
    auto const track = _queue->AddTrack();
    Require(stream::IPort::Link(*track.output, **port), "the queue cannot be linked");
    *port = track.input;
  }
}

void Recorder::Start() {
  Require(_video->Offer(_mix.Video()) && _audio->Offer(_mix.Audio()), "a track is refused");
  Require(_muxer->StatusChange(IStatus::kRunning), "the muxer does not start");
  Require(!_queue || _queue->StatusChange(IStatus::kRunning), "the queue does not start");
}

void Recorder::Push(Mix::Unit const& unit, std::int64_t number) {
  stream::Packet& packet = *unit.packet;
  packet.Pts(number * packet.Duration());
  Require((unit.video ? _video : _audio)->Push(packet), "the muxer refuses a packet");
  packet.Offset(0);
}

void Recorder::Close() {
  Require(!_queue || _queue->StatusChange(IStatus::kClosed), "the queue does not end");
  bool const closed = _muxer->StatusChange(IStatus::kClosed);
  Require(closed && _muxer->Check(), "the muxer does not close the file");
}

}  // namespace kestro::bench
