// The plug-in's muxer with its media, ports and tag set.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tags.h"
#include "input/Track.h"
#include "stream/IMuxer.h"

namespace kestro::tool {

struct RecorderOptions {
  TagOptions tags;
  std::optional<int> spillSeconds;                              // of index kept in memory
  std::string spillFolder;                                      // empty: the temporary folder
  std::vector<std::pair<std::string, std::string>> properties;  // set on the muxer as text
};

// One file. The plug-in must be loaded.
//
//   Recorder recorder(options, "out.avi", tracks);
//   while (...) if (!recorder.Push(track, packet)) break;   // Errors() say why
//   bool ok = recorder.Close();
class Recorder {
 public:
  // Nothing is written before the first packet. Throws Error.
  Recorder(RecorderOptions const& options, std::string const& path,
           std::vector<Track*> const& tracks);
  ~Recorder();

  // False when the packet, or one before, is not in the file: recording is over then.
  bool Push(std::size_t track, TimedPacket const& packet);
  // Writes the index and the head. False when the file is not complete.
  bool Close();

  std::vector<std::string> const& Errors() const { return _errors; }
  std::vector<std::string> const& Warnings() const { return _warnings; }

 private:
  void Note(std::string const& type, std::string const& text);
  void AddTrack(TrackInfo const& info);
  void Configure(RecorderOptions const& options, std::vector<Track*> const& tracks);

  std::unique_ptr<Tags> _tags;  // destroyed after the muxer
  std::unique_ptr<stream::IMuxer> _muxer;
  std::vector<stream::IPort*> _ports;
  std::vector<bool> _headed;        // by track: packets carry their chunk's header
  std::vector<unsigned> _sequence;  // next packet number, by track
  std::vector<std::string> _errors, _warnings;
  bool _open = false;
};

}  // namespace kestro::tool
