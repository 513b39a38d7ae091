// A video track: H.264, HEVC or motion JPEG with a constant frame rate.
#pragma once

#include <deque>
#include <optional>

#include "media/FrameClock.h"
#include "media/FrameRate.h"
#include "media/GapReport.h"
#include "media/OpenGroups.h"
#include "media/RateWatch.h"
#include "media/libav/Libav.h"
#include "media/libav/PictureFormat.h"
#include "media/libav/PictureSize.h"
#include "media/libav/Track.h"

namespace kestro::tool {

struct VideoOptions {
  base::Fraction rate;
  base::Fraction otherRate;  // the container's, if it is not `rate`; else 0/1
  bool checkTimes = false;   // the packets' times count, not the frame rate alone
  bool live = false;         // a long gap starts a new file
  bool newFileAtGap = false;
  bool fixedRate = false;   // `rate` holds also for other parameter sets
  bool sameFormat = false;  // Take refuses key frames of another format
};

class VideoTrack : public Track {
 public:
  // Throws Error for a stream that cannot be recorded.
  static void Check(AVStream const& stream, std::string const& name);

  VideoTrack(AVStream const& stream, std::string name, VideoOptions const& options,
             Timeline& timeline, InputClock& clock);

  void MakeLead() override { _lead = true; }
  base::Fraction InputRate() const override { return _options.rate; }
  base::Fraction OtherRate() const override { return _options.otherRate; }
  bool Take(AVPacket& packet) override;
  FormatWatch const& Formats() const { return _formats; }
  // Sets the container's parameter sets, as in the side data of a packet.
  void Configure(Bytes const& sets);
  std::int64_t Latest_ns() const override { return _latest_ns; }
  void End() override;
  bool Ready() override;
  TimedPacket Pop() override;
  bool Done() override;
  bool WaitsForLead() const override;
  std::int64_t NextTime_ns() const override;
  std::int64_t Waiting_ns() const override;
  std::size_t WaitingBytes() const override { return _bytes; }
  Notices Findings() const override;
  Notices Notes() const override;
  Notices TakeEvents() override;

 private:
  struct Unit {
    SharedBytes data;
    bool key, leading;
    std::int64_t time_ns;
  };
  struct Due {
    std::int64_t late_ns;  // how far the frame's time in the recording is off the counted one
    bool newFile;          // a new file starts at the next key frame
  };
  std::int64_t Time_ns(std::int64_t frame) const { return FrameTime_ns(_info.frameRate, frame); }
  // Where the frame after the due ones is in the recording.
  std::int64_t Place_ns() const {
    return _timeline.selection.recorded_ns +
           Time_ns(_frames + static_cast<std::int64_t>(_due.size())) + _late_ns;
  }
  std::int64_t PacketTime_ns(AVPacket const& packet);
  bool Full() const { return _timeline.IsOver(NextTime_ns()); }
  bool KeepBeforeStart(std::int64_t time_ns, bool key);
  bool NeedsNewTrack(Unit const& key);
  SharedBytes FrameData(AVPacket& packet, bool key);
  Unit Convert(AVPacket& packet, std::int64_t time_ns, bool key);
  void Start();
  void AddTime(Unit const& unit);
  void DropUnits();
  void FetchTimes();
  Notice Unevenness() const;
  Notices LeftOut() const;
  bool CloseGap(std::int64_t time_ns, std::int64_t gap_ns);

  AVRational const _timeBase;
  VideoOptions const _options;
  base::Fraction const _speed;
  std::size_t const _depth;  // how many frames a frame is decoded ahead of its turn
  Timeline& _timeline;
  InputClock& _clock;
  std::optional<AnnexB> _converter;  // none: packets are stored unchanged
  OpenGroups _groups;
  PictureSize _size;
  FormatWatch _formats;
  RateWatch _rates;
  FrameClock _times;
  std::deque<Unit> _units;  // before the start: the group of pictures that may be the first
  std::deque<Due> _due;     // for the first of them
  std::size_t _bytes = 0;
  std::int64_t _frames = 0;  // popped
  std::int64_t _taken = 0;   // packets of the container
  std::int64_t _timed = 0;   // units passed to _times
  std::int64_t _decoded_ns = 0, _delay_ns = 0, _latest_ns = 0, _begin_ns = 0, _late_ns = 0;
  bool _lead = false, _started = false, _firstGroup = true, _ended = false;
  bool _newFile = false;  // the next key frame starts a file

  std::int64_t _reported_ns = 0;                   // the largest difference that gaps explain
  std::int64_t _worst_ns = 0, _worstPlace_ns = 0;  // the largest difference from the counted time
  GapReport _gaps{"missing video"};
  unsigned _skipped = 0, _damaged = 0, _undecodable = 0, _discarded = 0;
};

}  // namespace kestro::tool
