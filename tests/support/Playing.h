// A demuxer element that a test reads packet by packet.
#pragma once

#include <algorithm>
#include <ostream>

#include "stream/IDemuxer.h"
#include "stream/ISink.h"
#include "support/Recording.h"

namespace kestro::test {

using PlayMode = stream::IDemuxer::PlayMode;

// A packet that was played.
struct Got {
  int track;
  int64 pts;  // ms
  bool key, end;
  std::string data;

  bool operator==(Got const& o) const {
    return track == o.track && pts == o.pts && key == o.key && end == o.end && data == o.data;
  }
};
inline void PrintTo(Got const& got, std::ostream* os) {
  *os << "track " << got.track << " at " << got.pts << " ms" << (got.key ? " key" : "")
      << (got.end ? " end" : "") << ", " << got.data.size() << " bytes";
}

class Playing {
 public:
  explicit Playing(base::IO* io, unsigned video = 0, char const* alias = "AviDemuxer-avi-demuxer")
      : demuxer(Make<stream::IDemuxer>(alias)) {
    demuxer->Set("io", io);
    demuxer->Set("plyVidCtrl", video);
    for (char const* codecs : {"h264,hevc", "pcm", "pcm"})
      outputs.push_back(demuxer->AddOutput(codecs));
  }
  bool Open() { return demuxer->StatusChange(IStatus::kOpen); }
  bool Run() { return demuxer->StatusChange(IStatus::kRunning); }
  bool Pause() { return demuxer->StatusChange(IStatus::kPaused); }
  bool Close() { return demuxer->StatusChange(IStatus::kClosed); }
  void Link(stream::ISink& sink) {  // every output
    for (IPort* output : outputs) EXPECT_TRUE(IPort::Link(*output, *sink.AddInput()));
  }

  base::Ref<Packet> Next() {
    auto* packet = demuxer->GeneratePacket(nullptr);
    if (packet == Packet::ReadFailure()) {
      ++failures;
      packet = nullptr;
    }
    return base::Ref<Packet>::Take(packet);
  }
  Got NextGot() {
    auto const packet = Next();
    if (!packet) return {-1, 0, false, false, ""};
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(packet->Data()) % 64, 0u);
    int track = 0;
    for (std::size_t i = 0; i < outputs.size(); ++i)
      if (outputs[i]->Carries(packet->Media())) track = static_cast<int>(i);
    return {track, packet->Pts() / 1000000, packet->IsKey(),
            (packet->Flags() & Packet::kEndOfStream) != 0,
            std::string(packet->Data(), packet->Data() + packet->Size())};
  }
  std::vector<Got> All() {
    std::vector<Got> all;
    for (Got got = NextGot(); got.track >= 0; got = NextGot()) all.push_back(std::move(got));
    return all;
  }
  std::vector<int64> Times() {
    std::vector<int64> times;
    for (Got const& got : All()) times.push_back(got.pts);
    return times;
  }

  std::unique_ptr<stream::IDemuxer> demuxer;
  std::vector<IPort*> outputs;
  int failures = 0;
};

}  // namespace kestro::test
