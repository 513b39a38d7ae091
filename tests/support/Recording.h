// A muxer element with inputs, driven by a test.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/IClass.h"
#include "base/Module.h"
#include "stream/IMuxer.h"
#include "support/MemoryIO.h"

namespace kestro::test {

using base::int64;
using stream::IMedia;
using stream::IPort;
using stream::IStatus;
using stream::Packet;

// The test program contains the plug-in's objects: their classes register once.
inline void RegisterClasses() {
  static bool const once = (base::ReflectRun(), true);
  (void)once;
}

// An element of a class that is registered.
template <class Element>
std::unique_ptr<Element> Make(char const* alias) {
  RegisterClasses();
  return base::Make<Element>(alias);
}

inline base::Ref<IMedia> VideoMedia(char const* codec = "h264", int width = 320, int height = 180,
                                    base::Fraction rate = {25, 1}, bool interlace = false) {
  auto media = base::Ref<IMedia>::Take(IMedia::New(codec));
  media->Set("width", width);
  media->Set("height", height);
  media->Set("framerate", rate);
  media->Set("interlace", interlace);
  return media;
}

inline base::Ref<IMedia> AudioMedia(int rate = 48000, int channels = 2, int samples = 1920) {
  auto media = base::Ref<IMedia>::Take(IMedia::New("pcm"));
  media->Set("rate", rate);
  media->Set("channel", channels);
  media->Set("width", 2);
  media->Set("depth", 16);
  media->Set("samples", samples);
  return media;
}

inline base::Ref<Packet> MakePacket(IMedia* media, std::string const& data, bool key = false,
                                    int64 ms = 40) {
  auto packet = Packet::New(static_cast<int>(data.size()), data.data());
  packet->Media(media);
  packet->Duration(ms * 1000000);
  packet->Flags(key ? static_cast<unsigned>(Packet::kKey) : 0u);
  return packet;
}

// H.264 access units: what precedes the parameter sets or the slice is not stored.
inline std::string const kStart("\0\0\0\1", 4);
inline std::string KeyFrame(std::string const& payload) {
  return kStart + "\x09\x10" + kStart + "\x67sps" + kStart + "\x68pps" + kStart + "\x65" + payload;
}
inline std::string StoredKeyFrame(std::string const& payload) {
  return KeyFrame(payload).substr(6);
}
inline std::string Frame(std::string const& payload) {
  return kStart + "\x09\x30" + kStart + "\x41" + payload;
}
inline std::string StoredFrame(std::string const& payload) { return Frame(payload).substr(6); }

class Recording {
 public:
  explicit Recording(base::IO* to, char const* alias = "AviMuxer-avi-muxer")
      : muxer(Make<stream::IMuxer>(alias)) {
    muxer->Set("io", to);
    muxer->Set("constFrameRate", base::Fraction(25, 1));
    muxer->OnMessage(
        [this](stream::IElement&, char const* type, char const* text, base::AttrSet const*) {
          messages.push_back(std::string(type) + (text != nullptr ? std::string(": ") + text : ""));
          return true;
        });
  }
  ~Recording() { Close(); }

  Recording& Track(base::Ref<IMedia> track) {
    ports.push_back(muxer->AddInput());
    EXPECT_TRUE(ports.back()->Offer(track.get()));
    media.push_back(std::move(track));
    return *this;
  }
  bool Open() { return muxer->StatusChange(IStatus::kRunning); }
  bool Close() { return muxer->StatusChange(IStatus::kClosed); }
  bool Push(int track, std::string const& data, bool key = false, int64 ms = 0) {
    auto const at = static_cast<std::size_t>(track);
    auto const packet = MakePacket(media[at].get(), data, key);
    packet->Pts(ms * 1000000);
    return ports[at]->Push(*packet);
  }

  std::unique_ptr<stream::IMuxer> muxer;
  std::vector<IPort*> ports;
  std::vector<base::Ref<IMedia>> media;
  std::vector<std::string> messages;
};

}  // namespace kestro::test
