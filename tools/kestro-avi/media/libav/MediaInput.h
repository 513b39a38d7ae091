// Reads an input with libavformat.
#pragma once

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "media/libav/ClockJumps.h"
#include "media/libav/Input.h"
#include "media/libav/LiveSource.h"

namespace kestro::tool {

// Opens a file name or an address that libavformat supports; "-" is standard input. The video,
// audio and text streams become tracks, in the container's order.
class MediaInput : public Input {
 public:
  MediaInput(std::string const& address, InputOptions const& options);

  void Begin(Timeline& timeline, EpochStart const& start) override;
  bool HasVideo() const override { return Has(AVMEDIA_TYPE_VIDEO); }
  bool Read() override;
  ReadExtent ReadSoFar() const override;
  void CutAt(std::int64_t session_ns) override;
  LiveSource* Live() override { return _live; }
  bool Accept() override;
  Notices Findings() const override;

 private:
  AVFormatContext& Format() const { return *_source->Opened().format; }
  AVStream& Stream(int index) const { return *Format().streams[index]; }
  std::string Name(int index) const { return StreamName(_address, Stream(index)); }
  bool Has(AVMediaType type) const;
  std::unique_ptr<Track> NewTrack(AVStream& stream, Timeline& timeline);
  std::unique_ptr<Track> NewTextTrack(AVStream& stream, Timeline const& timeline);
  std::optional<std::int64_t> Shift_ns() const;
  int Fetch(PacketPtr& packet);
  void Correct(AVPacket& packet);
  std::int64_t Time_ns(AVPacket const& packet) const;
  void PassOn(PacketPtr packet, Track& track);
  bool IsAfterCut(AVPacket const& packet) const;
  bool EndsAfter(AVPacket const& packet, std::int64_t time_ns) const;
  void Remember(AVPacket const& packet);
  void SetCut(std::int64_t time_ns);
  void Hold(PacketPtr packet);
  void Change(VideoTrack const& track, int stream);
  void NoteExtra(AVPacket const& packet);
  void EndTracks();
  void Finish(int outcome);
  void NoteJumps();
  void CheckLength();

  std::string const _address;
  InputOptions const _options;
  std::unique_ptr<PacketSource> _source;
  LiveSource* _live = nullptr;  // if it comes back
  InputClock _clock;
  ClockJumps _jumps;
  std::map<int, std::int64_t> _end_ns;  // by stream: the end of its packets so far
  std::vector<Track*> _byStream;        // null for streams that are not recorded
  std::map<int, Bytes> _extra;          // by stream: parameter sets that packets have brought
  unsigned _skipped = 0;                // texts while there was no video
  bool _begun = false, _done = false, _untimed = false;

  // The session's time when the tracks began, and by how much it is ahead of packets' times.
  std::int64_t _session_ns = 0;
  std::optional<std::int64_t> _shift_ns;
  bool _cutting = false;
  std::int64_t _from_ns = 0;      // the packets from this time on are for the next tracks,
  std::deque<PacketPtr> _held;    // and were read already,
  std::set<int> _reached;         // of these streams
  std::deque<PacketPtr> _recent;  // audio that the tracks got, in case they are cut before it
  std::deque<PacketPtr> _again;   // held before these tracks began
};

}  // namespace kestro::tool
