// The element whose recordings stay playable when they are cut off.
#pragma once

#include <memory>

#include "AviMuxer.h"

namespace kestro::plugin::avi {

// Registered as "VFIAviMuxer-avi-muxer-vfi". It is used like AviMuxer, and also brings index and
// headers up to date while it records: a sync. Whatever happens to the process or the machine after
// a sync, the packets that it covers can be played. There are three modes, chosen when a file is
// opened:
//
//   "periodicSyncEn" off: in place. The index has "reservedSize" bytes before the data; a sync
//       writes the new index entries and the headers.
//   on, with the tag set's "idx1_first" 1: image. Everything before the data is built in memory and
//       written as a whole: "periodicSyncHeaderSize" bytes of headers, with an index of
//       "periodicSyncIdx1Size" bytes before the last 12 of them. "reservedSize" is the sum of both.
//   on, with "idx1_first" 0: callback. The file gets "periodicSyncHeaderSize" bytes of headers, and
//       the data. A sync passes an image of headers and index to "periodicSyncCallback", valid
//       during the call. The headers belong at the start of the file, the index after the data;
//       only Close writes them there.
//
//   head [JUNK] | idx1 reserve | LIST movi ...        in place, image
//   head JUNK | LIST movi ... | idx1                  callback
//
// The first packet whose time is more than "flushtime" after that of the last sync causes a sync,
// and is covered by it; image mode also waits for at least 512 KiB of packets. Before the first
// sync, the time counts from the first packet whose time is not 0. When time goes back on the track
// that set this clock, it counts from there.
//
// A sync makes the data durable, then writes what refers to it, then makes that durable. The Flush
// of the stream given to the element must do what it promises. A device may tear a write between
// sectors. With an index that begins 8 bytes before a multiple of 16, and fields at multiples of 4,
// readers see nothing torn.
//
// A sync that fails in the stream puts the element into its error state, where it refuses packets.
// Once a flush of the stream has failed, no later success of it counts: Close leaves the file as it
// is and returns false. When the reserve is full, or there is no memory for an image to hand out,
// recording goes on with a warning, and a recording that is cut off plays up to the last packet
// that has an index entry.
//
// Opening the file fails when the sizes do not fit together or an image would be larger than 2 GiB.
// That is an error of the settings, not of the stream: CheckIO() stays true. These stop the
// process: a wrong "idx1_first", callback mode without a callback, headers that need more than
// their size, and an image larger than its contents.
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

  virtual bool UpdateIdx1();  // performs a sync
  virtual bool PeriodicSyncUpdateIdx1(unsigned mode);
  virtual unsigned PeriodicSyncSetMode(void* callback, unsigned char idx1First);
  virtual bool PeriodicSyncBufferCreate(unsigned mode);
  // Whether 2^shift bytes of packets have come since the last sync; and subtracts them after one.
  virtual bool PeriodicSyncCacheSizeCheck(Packet& packet, int shift);
  virtual bool PeriodicSyncAccDataCacheSizeReset(int shift);

  // Compatibility: hooks of muxers that move data. This one does not, and does nothing here.
  virtual bool UpdateMdat(IO&) { return true; }
  virtual bool UpdateVfiIdx1Offset(IO&, long long) { return true; }
  virtual bool CustomVfiBoxUpdate(IO&) { return true; }
  virtual bool ConcateMovi() { return true; }
  virtual int FillVfiJunk(IO&, unsigned long long, unsigned long long) { return 0; }

  static base::PropertyList Properties();

 protected:
  // Decided by the mode. The tag set is only read: other muxers may share it.
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
  u64 _rsvdVidSize = 0, _rsvdAudSize = 0;
  // Compatibility: applications set these properties; nothing here reads them.
  u64 _rsvdTxtSize = 0, _clusterSize = 0;
  // Settings of the next file; the core holds those of the open file.
  bool _periodicSyncEn = false;
  u64 _headerSize = 0;
  u64 _periodicSyncIdx1Size = 0;
  Callback _periodicSyncCallback = nullptr;

  // Of the open file:
  unsigned _periodicSyncMode = kImage;
  Image _headerImage;                   // image: everything before the data; callback: the headers
  int64 _lastSyncPts = 0;               // ns; 0: not yet set
  IMedia const* _clockTrack = nullptr;  // the track that set it
  base::uint64 _accDataSize = 0;        // of packets since the last sync, in bytes
  bool _finalSync = false;
  bool _flushFailed = false;
};

}  // namespace kestro::plugin::avi
