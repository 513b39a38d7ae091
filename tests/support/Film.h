// A recording for tests that play.
#pragma once

#include "support/FileLayout.h"

namespace kestro::test {

struct Film {
  int frames = 100, gop = 10;
  base::Fraction rate{25, 1};
  int soundRate = 48000, channels = 2, samples = 1920;  // a rate of 0: silent
  std::size_t bytes = 0;                                // of a frame's payload, at the least
  std::string strd = {};
};

inline std::string Payload(int frame, std::size_t bytes = 0) {
  std::string const text = "frame " + std::to_string(frame);
  return text + std::string(bytes - std::min(bytes, text.size()), 'f');
}

// The file: frames that know their number, sound beside them in time order.
struct FilmIO : MemoryIO {
  explicit FilmIO(Film const& f) {
    Shape shape;
    shape.strd = f.strd;
    Tags tags(shape);
    Recording r(this);
    r.muxer->Set("constFrameRate", f.rate);
    r.muxer->Set("vidtag", tags.object.get());
    r.Track(VideoMedia("h264", 320, 180, f.rate));
    if (f.soundRate > 0) r.Track(SoundMedia(f.soundRate, f.channels, f.samples));
    std::string const sound(static_cast<std::size_t>(f.samples * f.channels * 2), 's');
    bool ok = r.Open();
    int64 blocks = 0;
    for (int i = 0; i < f.frames; ++i) {
      bool const key = i % f.gop == 0;
      ok &= r.Push(0, (key ? KeyFrame : Frame)(Payload(i, f.bytes)), key);
      // Sound is due when it starts at the frame's time or before.
      while (f.soundRate > 0 &&
             blocks * f.samples * f.rate.num <= int64(i) * f.soundRate * f.rate.den)
        ok &= r.Push(1, sound, true), ++blocks;
    }
    EXPECT_TRUE(r.Close() && ok);
  }
};

}  // namespace kestro::test
