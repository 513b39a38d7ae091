// The element that plays AVI files.
#pragma once

#include <string>

#include "common/IAviDemux.h"
#include "common/OwnedMutex.h"
#include "stream/IDemuxer.h"

namespace kestro::plugin::avi {

// Registered as "AviDemuxer-avi-demuxer".
//
//   auto* demuxer = IClass::New<IDemuxer>(attrs);      // "Register" = "avi-demuxer"
//   demuxer->Set("path", "in.avi");
//   IPort::Link(*demuxer->AddOutput("h264"), *player->AddInput());
//   demuxer->StatusChange(IStatus::kOpen);             // publishes the media on the outputs
//   player->StatusChange(IStatus::kRunning);
//   demuxer->StatusChange(IStatus::kRunning);          // packets flow; Seek and PlayModeSwitch
//   demuxer->StatusChange(IStatus::kClosed);
//
// Each audio track, and the chosen video track, goes to the first output that takes its codec and
// is free. Seek, PlayModeSwitch and "plyVidCtrl" may be called from any thread, and from a sink's
// ReceivePacket. They exclude the making of packets and each other by a lock; after the end of the
// stream the first two make it go on, the last does not. The lock is held while the notification
// function and, within "plyVidCtrl", a sink's AcceptMedia are called: from these, calls that need
// it are refused with an error line. Everything else is for the control thread.
//
// "plyVidCtrl" changes the track and the outputs' media in one step: every packet of the new track
// is delivered, and one of the old track that was made before may be lost.
class AviDemuxer : public stream::IDemuxer, public IAviDemux {
 public:
  AviDemuxer();
  ~AviDemuxer() override;

  using IAviDemux::Close;
  using IAviDemux::Open;
  bool Open() override;
  bool Close() override;
  bool ParseFile(std::function<bool(IMedia*)> callback) override;
  // To the key frame at or before a time; the other tracks stand at that frame's time then.
  bool Seek(int64 ms) override;
  int64 Duration() const override { return _duration; }  // after Open
  // The tracks stay where they are: play goes on in the new way from there. False for a mode that
  // does not exist, which changes nothing.
  //   Backward play steps over the last frame and at least once more, to a key frame: after a seek
  // to one it begins with the key frame before it. To see that one too, take two packets of it in
  // another mode first. At its end the tracks are at the first frame; at the end of fast play, at
  // the end.
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
  std::string _fault;              // what opening met; reported without the lock
};

}  // namespace kestro::plugin::avi
