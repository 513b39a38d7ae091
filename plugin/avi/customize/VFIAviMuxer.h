// The element that records files which stay playable when the recording is cut off.
#pragma once

#include <memory>

#include "AviMuxer.h"

namespace kestro::plugin::avi {

// Registered as "VFIAviMuxer-avi-muxer-vfi". Used as AviMuxer is; besides, it brings index and
// headers up to date while it records: a sync. After a sync, what it covers is played whatever
// happens to the process or the machine. There are three ways, chosen when a file is opened:
//
//   "periodicSyncEn" off: in place. A reserve of "reservedSize" bytes in front of the data takes
//       the index; a sync writes what is new of the index, and the headers.
//   on, the tag set's "idx1_first" 1: image. Everything in front of the data is built in memory and
//       written as a whole: headers up to "periodicSyncHeaderSize", with an index of
//       "periodicSyncIdx1Size" in front of the last 12 of them. "reservedSize" is the sum of both.
//   on, "idx1_first" 0: callback. The file gets headers of "periodicSyncHeaderSize" and the data; a
//       sync hands an image of headers and index to "periodicSyncCallback", which lasts as long as
//       the call. The headers belong at the start of the file, the index behind the data. Only
//       Close writes them there.
//
//   head [JUNK] | idx1 reserve | LIST movi ...        in place, image
//   head JUNK | LIST movi ... | idx1                  callback
//
// A sync comes with the first packet whose time is more than "flushtime" after that of the last
// sync, and covers it; in image mode, also at least 512 KiB of packets must have come. Before the
// first sync it counts from the first packet whose time is not 0. When the time goes back on the
// track that has set the clock, it counts anew from there.
//
// A sync makes the data durable, then writes what refers to it, then makes that durable: the stream
// given to the element must keep its Flush's promise. A device may tear what is written between its
// sectors: an index that begins 8 bytes in front of a multiple of 16, and fields at multiples of 4,
// leave nothing torn that a reader would see.
//
// A sync that fails in the stream puts the element into its error state, where it refuses packets.
// Once a flush of the stream has failed, no later success of it counts: Close leaves the file as it
// is and returns false. When the reserve is full, or there is no memory for an image to hand out,
// recording goes on with a warning, and a recording that is cut off plays up to the last packet
// that has an index entry.
//
// Refused when the file is opened: sizes that do not fit together, or images beyond 2 GiB. That is
// an error of the settings, not of the stream: CheckIO() stays true. A wrong "idx1_first", callback
// mode without a callback, headers that need more than their size, and an image larger than what it
// holds stop the process.
class VFIAviMuxer : public AviMuxer {
 public:
  // `id` is the property "notifyid", `file` the stream's handle. The first `headerSize` bytes are
  // the headers.
  using Callback = void (*)(unsigned id, unsigned file, unsigned char const* data, unsigned size,
                            unsigned headerSize);
  enum Mode : unsigned { kImage = 0, kCallback = 1 };

  ~VFIAviMuxer() override;

  using AviMuxer::Close;
  bool Close() override;  // the last sync
  bool process(IO& io, Packet& packet) override;
  bool OpenFileConfig() override;
  bool SetRsvdSize(IStream* stream, unsigned isVideo) override;
  bool fillJunk(IO& io) override;

  virtual bool UpdateIdx1();  // a sync
  virtual bool PeriodicSyncUpdateIdx1(unsigned mode);
  virtual unsigned PeriodicSyncSetMode(void* callback, unsigned char idx1First);
  virtual bool PeriodicSyncBufferCreate(unsigned mode);
  // Whether 2^shift bytes of packets have come; and takes them off when they have been synced.
  virtual bool PeriodicSyncCacheSizeCheck(Packet& packet, int shift);
  virtual bool PeriodicSyncAccDataCacheSizeReset(int shift);

  // Nothing to do for a muxer that never moves data.
  virtual bool UpdateMdat(IO&) { return true; }
  virtual bool UpdateVfiIdx1Offset(IO&, long long) { return true; }
  virtual bool CustomVfiBoxUpdate(IO&) { return true; }
  virtual bool ConcateMovi() { return true; }
  virtual int FillVfiJunk(IO&, unsigned long long, unsigned long long) { return 0; }

  static base::PropertyList Properties();

 protected:
  // By the way in which the file is opened. The tag set is only read: other muxers may share it.
  bool IndexFirst() const override;

 private:
  using Image = std::unique_ptr<base::IOBuffer>;
  using u64 = unsigned long long;

  static constexpr char kNoImage[] = "no memory for the image of head and index";

  void ResetFile();
  bool SizesFit(unsigned char idx1First) const;
  Image NewImage(int64 size);
  void SetClock(Packet const& packet);
  int64 SinceSync(Packet const& packet);

  bool HasFile(char const* function) const;
  bool FlushFile();
  bool Barrier();
  void CallBack(base::IOBuffer& image);
  void UpdateFront(IO& front);
  template <class Store>
  bool WriteFront(Store store);
  bool WriteImage();
  bool HandOver(int64 fileSize);
  bool SyncInPlace();
  bool SyncImage();
  bool SyncByCallback();
  bool AppendIndex();

  unsigned _flushtime = 3000;  // ms
  u64 _reservedSize = 0x500000;
  u64 _rsvdVidSize = 0, _rsvdAudSize = 0, _rsvdTxtSize = 0;
  u64 _clusterSize = 0;
  // What the next file will have; the core has that of the file that is open.
  bool _periodicSyncEn = false;
  u64 _headerSize = 0;
  u64 _periodicSyncIdx1Size = 0;
  Callback _periodicSyncCallback = nullptr;

  // Of the open file:
  unsigned _periodicSyncMode = kImage;
  Image _headerImage;      // all that precedes the data (image), or the headers (callback)
  int64 _lastSyncPts = 0;  // ns; 0: not yet set
  IMedia const* _clockTrack = nullptr;  // which track has set it
  base::uint64 _accDataSize = 0;        // of packets since the last sync, in bytes
  bool _finalSync = false;
  bool _flushFailed = false;
};

}  // namespace kestro::plugin::avi
