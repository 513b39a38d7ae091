// Goes through the first video track of an AVI file, following commands:
//   player PLUGIN IN.avi COMMAND...
//   step N       shows the next N frames
//   seek MS      goes to the key frame at or before a time
//   mode NAME    normal (every frame), fast (key frames), back (key frames, backward)
// For each frame it prints a line: its time in seconds, its bytes, "key". At the end of the track
// it prints "end"; a seek or another mode continues from there.
//
// The demuxer is opened but never started: without its thread, frames are read only on request.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "base/Module.h"
#include "stream/IDemuxer.h"

namespace base = kestro::base;
namespace stream = kestro::stream;
using base::Ref;
using PlayMode = stream::IDemuxer::PlayMode;

namespace {

// Returns null at the end of the track, and the read-failure marker if the file cannot be read.
stream::Packet* NextFrame(stream::IDemuxer& demuxer, stream::IMedia const* video) {
  for (;;) {
    stream::Packet* const packet = demuxer.GeneratePacket(nullptr);
    if (packet == nullptr || packet == stream::Packet::ReadFailure()) return packet;
    if (packet->Media() == video) return packet;
    packet->Release();  // it belongs to another track
  }
}

bool Step(stream::IDemuxer& demuxer, stream::IMedia const* video, int frames) {
  for (; frames > 0; --frames) {
    stream::Packet* const next = NextFrame(demuxer, video);
    if (next == stream::Packet::ReadFailure()) return false;
    auto const frame = Ref<stream::Packet>::Take(next);
    if (!frame) {
      std::puts("end");
      return true;
    }
    std::printf("%.3f %d%s\n", static_cast<double>(frame->Pts()) / 1e9, frame->Size(),
                frame->IsKey() ? " key" : "");
  }
  return true;
}

bool Switch(stream::IDemuxer& demuxer, std::string const& name) {
  if (name == "normal") return demuxer.PlayModeSwitch(PlayMode::kNormal);
  if (name == "fast") return demuxer.PlayModeSwitch(PlayMode::kFast);
  return name == "back" && demuxer.PlayModeSwitch(PlayMode::kBack);
}

bool Obey(stream::IDemuxer& demuxer, stream::IMedia const* video, std::string const& command,
          char const* argument) {
  if (command == "step") return Step(demuxer, video, std::atoi(argument));
  if (command == "seek") return demuxer.Seek(std::atoll(argument));
  return command == "mode" && Switch(demuxer, argument);
}

int Fail(std::string const& text) {
  std::cerr << "player: " << text << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc % 2 == 0)
    return Fail("takes PLUGIN IN.avi, and commands: step N, seek MS, mode NAME");
  std::string error;
  if (!base::LoadPlugin(argv[1], &error)) return Fail(error);
  auto const demuxer = base::Make<stream::IDemuxer>("avi-demuxer");
  if (!demuxer || !demuxer->Set("path", argv[2])) return Fail("no demuxer");

  // Opening publishes a matching track on this output.
  stream::IPort const* const output = demuxer->AddOutput("h264,hevc");
  if (!demuxer->StatusChange(stream::IStatus::kOpen)) return Fail("not an AVI file, or damaged");
  auto const video = output->Media();
  if (!video) return Fail("no H.264 or HEVC in the file");
  std::printf("%s, %.3f s\n", video->Codec(), static_cast<double>(demuxer->Duration()) / 1e3);

  for (int i = 3; i < argc; i += 2)
    if (!Obey(*demuxer, video.get(), argv[i], argv[i + 1]))
      return Fail(std::string("cannot ") + argv[i] + " " + argv[i + 1]);
}
