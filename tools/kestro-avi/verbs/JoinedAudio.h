// Keeps an audio track in sync where files are joined.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "avi/TrackReader.h"
#include "recorder/Recorder.h"

namespace kestro::tool {

// The next file begins where the leading track of the one before ends. Audio that ends earlier is
// followed by silence, and audio that ends later is cut there. Up to 10 ms are left alone: they do
// not add up, because the distance is measured from the beginning of the first file.
class JoinedAudio {
 public:
  // Writes to a track of the recorder, which must outlive this.
  JoinedAudio(record::Recorder& recorder, std::size_t track)
      : _recorder(&recorder), _track(track) {}

  // A file begins. `samples`: how many the track has in it; `end_ns`: when the next file begins,
  // negative if there is none.
  void Begin(avi::AviTrack const& track, std::uint64_t samples, std::int64_t end_ns);
  // These return false when the recorder has failed.
  bool Add(avi::Piece const& piece);  // fills what is missing before it with silence
  bool Reach(std::int64_t time_ns);   // the leading track is here; silence once audio has ended
  bool End();                         // the file has been read
  // What was changed in this file, for messages; empty if nothing.
  std::string Changes() const;

 private:
  std::int64_t Samples(std::int64_t time_ns) const;
  std::int64_t Time_ns(std::int64_t samples) const;
  bool FillTo(std::int64_t position);
  bool Write(std::uint8_t const* data, std::int64_t samples);

  record::Recorder* _recorder;
  std::size_t _track;
  std::int64_t _rate = 1;
  std::size_t _frameBytes = 1;
  std::vector<std::uint8_t> _silence;   // at most a second
  std::int64_t _written = 0;            // samples, of all files
  std::int64_t _begin = 0, _ended = 0;  // of this file's samples
  std::int64_t _end = -1;               // where the next file begins; -1: nowhere
  std::int64_t _filled = 0, _cut = 0;   // in this file
};

}  // namespace kestro::tool
