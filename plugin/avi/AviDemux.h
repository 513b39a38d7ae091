// The element that plays AVI files.
#pragma once

#include <string>

#include "common/IAviDemux.h"
#include "common/OwnedMutex.h"
#include "stream/IDemuxer.h"

namespace kestro::plugin::avi {

// Registered as "AviDemuxer-avi-demuxer".
//
//   auto const demuxer = Make<IDemuxer>("avi-demuxer");
//   demuxer->Set("path", "in.avi");
//   IPort::Link(*demuxer->AddOutput("h264"), *player->AddInput());
//   demuxer->StatusChange(IStatus::kOpen);             // publishes the media on the outputs
//   player->StatusChange(IStatus::kRunning);
//   demuxer->StatusChange(IStatus::kRunning);          // packets flow; Seek and PlayModeSwitch
//   demuxer->StatusChange(IStatus::kClosed);
//
// Each audio track, and the chosen video track, is published on the first free output that takes
// its codec. Seek, PlayModeSwitch and "plyVidCtrl" may be called from any thread, and from a sink's
// ReceivePacket. A lock keeps them and the making of packets apart. After the end of the stream,
// Seek and PlayModeSwitch start it again; "plyVidCtrl" does not. The lock is held while the
// notification function is called and, within "plyVidCtrl", a sink's AcceptMedia: calls from there
// that need the lock are refused with an error line. Everything else is for the control thread.
//
// "plyVidCtrl" changes the track and the outputs' media in one step. Every packet of the new track
// is delivered; one of the old track that was made before may be lost.
class AviDemuxer : public stream::IDemuxer, public IAviDemux {
 public:
  AviDemuxer();
  ~AviDemuxer() override;

  using IAviDemux::Close;
  using IAviDemux::Open;
  bool Open() override;
  bool Close() override;
  bool ParseFile(std::function<bool(IMedia*)> callback) override;
  // Goes to the key frame at or before a time, and moves the other tracks to that frame's time.
  bool Seek(int64 ms) override;
  int64 Duration() const override { return _duration; }  // after Open
  // Plays on from the current position in another mode. Returns false, and changes nothing, for a
  // mode that does not exist.
  //   Backward play steps back over the last frame and at least one more, to a key frame. After a
  // seek to a key frame it therefore begins with the key frame before that one; to see both, play
  // two packets in another mode first. Backward play ends with the tracks at the first frame, fast
  // play with the tracks at the end.
  bool PlayModeSwitch(PlayMode mode) override;
  Packet* GeneratePacket(void*) override;
  virtual bool parseFile();

  bool plyVidCtrl(unsigned id);

  static base::PropertyList Properties();

 protected:
  bool UpdateMediaInfo();
  bool Publish(IMedia* media);
  void PublishVideo();
  void ReportFault();
  bool Refused(char const* what) const;

  mutable OwnedMutex _lock;
  PlayProcess _process = nullptr;  // null unless open
  std::string _fault;              // an error while opening, to be reported without the lock
};

}  // namespace kestro::plugin::avi
