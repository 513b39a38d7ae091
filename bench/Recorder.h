// Runs the muxer element for the benchmarks.
#pragma once

#include <memory>

#include "Bench.h"
#include "Mix.h"
#include "stream/IMuxer.h"
#include "stream/PacketQueue.h"

namespace kestro::bench {

// A stream that drops what is written.
class NullIO : public base::IO {
 public:
  NullIO() : IO("NullIO") {}
  base::int64 Size() override { return _size; }
  base::int64 Tell() override { return _position; }
  bool Seek(base::int64 offset, int whence) override {
    return base::SeekTarget(*this, offset, whence, _position);
  }
  unsigned Read(void*, unsigned) override { return kFailed; }
  unsigned Write(void const* data, unsigned size) override;
  bool Truncate(base::int64 size) override;

 private:
  base::int64 _size = 0, _position = 0;
};

// Records a mix: a muxer with a video and an audio input. Throws when the element refuses
// something.
//
//   Recorder recorder(mix, io or path);
//   recorder.AddQueue();                  // optional, before the muxer
//   recorder.Start();
//   mix.Play(packets, [&](auto& unit, auto, auto number) { recorder.Push(unit, number); });
//   recorder.Close();
class Recorder {
 public:
  Recorder(Mix const& mix, base::IO& io, char const* muxer = "avi-muxer");  // `io` must outlive it
  Recorder(Mix const& mix, char const* path);

  // An element property, before Start.
  template <class T>
  void Set(char const* name, T value) {
    Require(_muxer->Set(name, value), name);
  }
  void AddQueue();
  void Start();
  // Sets the packet's time from `number`, its number in the track. Restores its offset afterwards.
  void Push(Mix::Unit const& unit, std::int64_t number);
  void Close();

 private:
  Recorder(Mix const& mix, char const* muxer, std::nullptr_t);

  Mix const& _mix;
  std::unique_ptr<stream::IMuxer> _muxer;
  std::unique_ptr<stream::PacketQueue> _queue;  // destroyed before the muxer
  stream::IPort *_video, *_audio;               // inputs for the packets
};

}  // namespace kestro::bench
