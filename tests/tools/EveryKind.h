// A file with a track of every kind, by the plug-in's muxer.
#pragma once

#include "Command.h"
#include "cli/Plugin.h"
#include "support/Recording.h"

namespace kestro::tool {

// Ten frames of 25 fps in H.264, HEVC and motion JPEG, two audio tracks and text. Sizes are odd and
// even; every second HEVC frame is a key frame.
class EveryKind : public Command {
 protected:
  enum { kH264, kHevc, kAudio, kMono, kText, kJpeg, kTracks };
  struct Text {
    int frame;  // that it precedes
    std::string text;
  };
  std::vector<Text> const _texts = {{0, "odd"}, {4, "zwei"}, {4, "\xC3\xA4\n\nblank"}, {10, "end"}};
  std::vector<std::string> _pictures;  // of the JPEG track
  std::string _payload[kTracks];       // what is in the chunks

  void Make(std::string const& name) {
    using namespace test;
    LoadAviPlugin(TEST_PLUGIN);
    MemoryIO io;
    Recording recording(&io);
    recording.Track(VideoMedia()).Track(VideoMedia("hevc", 64, 48)).Track(AudioMedia());
    recording.Track(AudioMedia(8000, 1, 320)).Track(VideoMedia("txt")).Track(VideoMedia("jpeg"));
    ASSERT_TRUE(recording.Open());
    auto const push = [&](int track, std::string const& data, std::string const& stored, bool key) {
      EXPECT_TRUE(recording.Push(track, data, key));
      _payload[track] += stored;
    };
    auto const texts = [&](int frame) {
      for (Text const& text : _texts)
        if (text.frame == frame) push(kText, text.text, text.text, false);
    };
    std::string const delimiter = kStart + "\x46\x01\x10";
    for (int i = 0; i < 10; ++i) {
      std::string const some(static_cast<std::size_t>(i), 'x'), picture = "\xFF\xD8" + some;
      std::string const sets = kStart + "\x40vps" + kStart + "\x42sps" + kStart + "\x44pps";
      std::string const hevc =
          (i % 2 == 0 ? sets + kStart + "\x26" : kStart + "\x02") + "\x01" + some;
      texts(i);
      push(kH264, i == 0 ? KeyFrame(some) : Frame(some),
           i == 0 ? StoredKeyFrame(some) : StoredFrame(some), i == 0);
      push(kHevc, delimiter + hevc, hevc, i % 2 == 0);
      for (int track : {kAudio, kMono}) {
        std::string const audio(track == kAudio ? 7680 : 640, static_cast<char>('a' + i));
        push(track, audio, audio, false);
      }
      _pictures.push_back(picture);
      push(kJpeg,
           std::string("05dc") + static_cast<char>(picture.size()) + std::string(3, 0) + picture,
           picture, true);
    }
    texts(10);
    ASSERT_TRUE(recording.Close());
    Write(name, {io.bytes.begin(), io.bytes.end()});
  }
};

}  // namespace kestro::tool
