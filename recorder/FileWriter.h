// Writes one file with the plug-in's muxer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "recorder/OrdinaryClose.h"
#include "recorder/Packets.h"
#include "recorder/SideFile.h"
#include "recorder/SyncPlan.h"
#include "recorder/Tags.h"
#include "stream/IMuxer.h"

namespace kestro::record {

// One file. The plug-in must be loaded. Not thread-safe.
//
//   FileWriter file(options, "out.avi", tracks, packets);
//   while (...) if (!file.Push(track, packet)) break;   // Errors() say why
//   bool ok = file.Close();
class FileWriter {
 public:
  // Nothing is written before the first packet. All arguments but the texts must outlive the
  // writer. `isft`: used instead of TagOptions::isft. Throws Refusal.
  FileWriter(RecorderOptions const& options, std::string const& path, std::string const& isft,
             Tracks const& tracks, Packets const& packets);
  ~FileWriter();

  // Stores a packet, whose fields the muxer may change. False when this packet or an earlier one
  // could not be stored; recording is over then.
  bool Push(std::size_t track, stream::Packet& packet);
  // Writes the index and the headers. False when the file is incomplete.
  bool Close();

  std::string const& Path() const { return _path; }
  std::uint64_t Size();  // an upper bound of the file's size if it were closed now
  std::uint64_t Written() const { return _written; }  // bytes of chunks and their index entries
  std::uint64_t Pushed() const { return _pushed; }    // packets stored

  // The index of a closed file.
  FrontIndex const& Index() const { return _index; }
  // One line each, which names the file. Warnings are about files that are complete all the same.
  std::vector<std::string> const& Errors() const { return _errors; }
  std::vector<std::string> const& Warnings() const { return _warnings; }

 private:
  void Note(std::string const& type, std::string const& text, std::string const& reason);
  bool Open();
  void Configure(Tracks const& tracks, std::string const& isft);
  void ConfigureSync(Tracks const& tracks);
  void ConfigureSpill();

  RecorderOptions const& _options;
  std::string const _path;
  Packets const& _packets;
  std::unique_ptr<Tags> _tags;        // this and the next two must outlive the muxer
  std::unique_ptr<SideFile> _side;    // null without one
  std::unique_ptr<base::IO> _output;  // null if the muxer opens the file itself
  std::unique_ptr<stream::IMuxer> _muxer;
  std::vector<stream::IPort*> _ports;
  std::uint64_t _room = 0;  // capacity of the index in entries, 0: unlimited
  FrontIndex _index;
  std::uint64_t _entries = 0, _heads = 0, _written = 0, _pushed = 0;
  std::vector<std::string> _errors, _warnings;
  bool _open = false;
};

}  // namespace kestro::record
