// Where extracted tracks go.
#pragma once

#include <cstddef>
#include <string>

#include "avi/TrackReader.h"
#include "base/File.h"
#include "output/NewFile.h"

namespace kestro::tool {

// Usage: Write the pieces of each track in order, then Finish. All throw Error.
class KESTRO_API Output {
 public:
  virtual ~Output() = default;
  // `track`: counted in the order in which the output was given its tracks.
  virtual void Write(std::size_t track, avi::Piece const& piece) = 0;
  // Returns how much was written, for people.
  virtual std::string Finish() = 0;
  // What people should know about the output; empty for nothing.
  virtual std::string Findings() const { return ""; }
};

// Data as it is: an elementary stream of video.
class StreamFile : public Output {
 public:
  explicit StreamFile(std::string const& path);
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Finish() override;

 protected:
  void Store(void const* data, std::size_t size);

  NewFile _new;
  base::FileIO _file;
};

// Writes a whole file and says so.
void WriteFile(std::string const& path, void const* data, unsigned size);

// PCM as RIFF/WAVE.
class WaveFile : public StreamFile {
 public:
  WaveFile(std::string const& path, avi::AviTrack const& track);
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Finish() override;

 private:
  void StoreHead();

  avi::AviTrack _track;
  std::uint64_t _bytes = 0;
};

}  // namespace kestro::tool
