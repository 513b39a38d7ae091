// A recording for tests that play.
#pragma once

#include "support/FileLayout.h"

namespace kestro::test {

struct Film {
  int frames = 100, gop = 10;
  base::Fraction rate{25, 1};
  int audioRate = 48000, channels = 2, samples = 1920;  // a rate of 0: silent
  std::size_t bytes = 0;                                // of a frame's payload, at least
  std::string strd = {};
};

inline std::string Payload(int frame, std::size_t bytes = 0) {
  std::string const text = "frame " + std::to_string(frame);
  return text + std::string(bytes - std::min(bytes, text.size()), 'f');
}

// The file: numbered frames, and audio blocks between them in time order.
struct FilmIO : MemoryIO {
  explicit FilmIO(Film const& f) {
    Shape shape;
    shape.strd = f.strd;
    Tags tags(shape);
    Recording r(this);
    r.muxer->Set("constFrameRate", f.rate);
    r.muxer->Set("vidtag", tags.object.get());
    r.Track(VideoMedia("h264", 320, 180, f.rate));
    if (f.audioRate > 0) r.Track(AudioMedia(f.audioRate, f.channels, f.samples));
    std::string const audio(static_cast<std::size_t>(f.samples * f.channels * 2), 's');
    bool ok = r.Open();
    int64 blocks = 0;
    for (int i = 0; i < f.frames; ++i) {
      bool const key = i % f.gop == 0;
      ok &= r.Push(0, (key ? KeyFrame : Frame)(Payload(i, f.bytes)), key);
      // A block follows when it starts at the frame's time or before.
      while (f.audioRate > 0 &&
             blocks * f.samples * f.rate.num <= int64(i) * f.audioRate * f.rate.den)
        ok &= r.Push(1, audio, true), ++blocks;
    }
    EXPECT_TRUE(r.Close());
    EXPECT_TRUE(ok);
  }
};

// Rounds of an H.264 picture, an HEVC picture and an audio block. Of the H.264 key frames, every
// one but the first carries parameter sets; of the HEVC ones, the first does.
inline void RecordTwoVideos(MemoryIO& io, int rounds) {
  Recording r(&io);
  r.Track(VideoMedia("h264", 320, 180)).Track(VideoMedia("hevc", 640, 360)).Track(AudioMedia());
  EXPECT_TRUE(r.Open());
  for (int i = 0; i < rounds; ++i) {
    bool const key = i % 10 == 0;
    std::string const slice = kStart + (key ? "\x65" : "\x41") + "first";
    EXPECT_TRUE(r.Push(0, key && i > 0 ? KeyFrame("first") : slice, key));
    std::string const sets = kStart + "\x40v" + kStart + "\x42s" + kStart + "\x44p";
    EXPECT_TRUE(r.Push(1, (i == 0 ? sets : "") + kStart + "\x26second", true));
    EXPECT_TRUE(r.Push(2, std::string(7680, 's'), true));
  }
}

}  // namespace kestro::test
