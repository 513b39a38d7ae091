// Calls the demuxer element directly, without threads and links.
#pragma once

#include <memory>
#include <string>

#include "Bench.h"
#include "base/IClass.h"
#include "stream/IDemuxer.h"

namespace kestro::bench {

class Player {
 public:
  explicit Player(char const* alias = "avi-demuxer") {
    _demuxer = base::Make<stream::IDemuxer>(alias);
    Require(_demuxer != nullptr, "the plug-in has no such demuxer");
    _demuxer->AddOutput("h264");
    _demuxer->AddOutput("pcm");
  }
  explicit Player(std::string const& path) : Player() { Set("path", path.c_str()); }
  ~Player() { static_cast<void>(_demuxer->StatusChange(stream::IStatus::kClosed)); }

  template <class T>
  void Set(char const* name, T value) {
    Require(_demuxer->Set(name, value), name);
  }
  base::IO* Stream() { return _demuxer->Stream(); }
  void Open() {
    Require(_demuxer->StatusChange(stream::IStatus::kOpen), "the demuxer does not open");
  }
  void Seek(int ms) { Require(_demuxer->Seek(ms), "the demuxer does not seek"); }
  // False at the end.
  bool Next() {
    stream::Packet* const packet = _demuxer->GeneratePacket(nullptr);
    Require(packet != stream::Packet::ReadFailure(), "the demuxer cannot read");
    if (packet != nullptr) packet->Release();
    return packet != nullptr;
  }

 private:
  std::unique_ptr<stream::IDemuxer> _demuxer;
};

}  // namespace kestro::bench
