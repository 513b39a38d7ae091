#include "Recorder.h"

#include <algorithm>

#include "Bench.h"
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

Recorder::Recorder(Mix const& mix) {
  base::AttrSet attrs;
  attrs.Add("Register", "avi-muxer");
  _muxer.reset(base::IClass::New<stream::IMuxer>(attrs));
  Require(_muxer != nullptr, "the plug-in has no avi-muxer");
  Require(_muxer->Set("constFrameRate", base::Fraction(Mix::kFps, 1)), "no frame rate");
  _video = _muxer->AddInput();
  _sound = _muxer->AddInput();
  Require(_video->Offer(mix.Video()) && _sound->Offer(mix.Sound()), "a track is refused");
}

Recorder::Recorder(Mix const& mix, base::IO& io) : Recorder(mix) {
  Require(_muxer->Set("io", &io), "the muxer takes no stream");
}

Recorder::Recorder(Mix const& mix, char const* path) : Recorder(mix) {
  Require(_muxer->Set("path", path), "the muxer takes no path");
}

void Recorder::Set(char const* name, int value) { Require(_muxer->Set(name, value), name); }

void Recorder::Start() {
  Require(_muxer->StatusChange(IStatus::kRunning), "the muxer does not start");
}

void Recorder::Push(Mix::Unit const& unit, std::int64_t number) {
  stream::Packet& packet = *unit.packet;
  packet.Pts(number * packet.Duration());
  Require((unit.video ? _video : _sound)->Push(packet), "the muxer refuses a packet");
  packet.Offset(0);
}

void Recorder::Close() {
  bool const closed = _muxer->StatusChange(IStatus::kClosed);
  Require(closed && _muxer->Check(), "the muxer does not close the file");
}

}  // namespace kestro::bench
