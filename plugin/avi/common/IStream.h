// One track of a file.
#pragma once

#include <vector>

#include "base/IClass.h"
#include "common/HeaderChunks.h"
#include "common/IListFile.h"
#include "common/ListChunks.h"
#include "stream/Packet.h"

namespace kestro::plugin::avi {

using base::Fraction;
using base::Object;
using stream::IMedia;
using stream::Packet;

// What a muxer tells its streams about the file.
struct MuxerParam {
  int idx1WithTmpFile = -1;  // spill batches of the index, in seconds; 0 one size, -1 no spilling
  char diskName = 0;         // drive letter of spill files, 0 for the temporary folder
  int64 entries = 0;         // in the index, of all streams; counted by them
  bool spillFault = false;   // set by a stream whose entries could not be spilled
  bool indexLost = false;    // set by a stream whose spilled entries could not be read back
};

// Writing, a stream turns packets into chunks of "movi" and records of the index, and keeps the
// counters of its header:
//
//   IStream* st = IStream::New("h264", "h264", 0);   // by codec, through the registry
//   st->MuxReset();
//   st->MuxConfig(list, media, vidtag, &para);       // builds Strl(); false: do not use it
//   hdrl->Add(st->Strl());
//   ... st->AddPacket(packet, io, 0);                // false: another track's packet
//   st->MuxUpdate();                                 // before the headers are written
//   delete st;
//
// The list of records is the muxer's, shared by all its streams; media, tag set and parameters are
// the muxer's too. Write failures are the IO's to remember.
//
// Reading, it walks the records of its track with a cursor and makes packets of their chunks:
//
//   IStream* st = IStream::New("h264", "h264", 0);
//   st->DemuxConfig(strl, nullptr);                  // rebuilds Media()
//   ... st->AddListChunk(record);                    // those of this track, in file order
//   st->DemuxReset();
//   st->SetDurPerFrame();                            // gives the records their durations
//   st->SetKeyFrameGap();
//   ... st->GetPacket(io, 0);                        // the chunk under the cursor, then advances
//   delete st;
//
// List and media are its own then; the media may be null for a track that cannot be played. Times
// are microseconds in the records and the cursor's clock, milliseconds for seeking, nanoseconds in
// packets. Used by one thread at a time.
class IStream : public Object {
 public:
  // Null for an unknown codec, and for a name that is empty or holds a "-".
  [[nodiscard]] static IStream* New(char const* codec, char const* name, int trackId);

  explicit IStream(char const* name) : Object(name) {}
  ~IStream() override;

  [[nodiscard]] bool MuxConfig(std::vector<ChunkParam>* list, IMedia* media, Object* vidtag,
                               MuxerParam* para);
  void MuxReset();
  void MuxResetPts() { _clock = -1; }

  int TrackID() const { return _trackId; }
  void TrackID(int id) { _trackId = static_cast<short>(id); }
  IMedia* Media() const { return _media; }
  // The track's header list, given to the tree by the muxer; null for a track without one.
  IList* Strl() const { return _strl; }
  int64 Duration() const { return _duration; }  // milliseconds
  unsigned EntryCount() const { return _entryCount; }
  // The header's length: samples or frames. A video track that does not count has its records.
  unsigned Length() const { return _count == 0 && _media->IsVideo() ? _entryCount : _count; }
  unsigned Bytes() const { return _bytes; }
  unsigned SpillBatch() const { return _spillBatch; }
  void MuxFlags(bool first, bool second, bool noSpill);
  void Limit(unsigned entries) { _limit = entries; }  // the periodic-sync muxer's reserve

  // Brings spilled records back and the header up to date.
  virtual bool MuxUpdate();
  // Removes the file of spilled records, which are back: a full device needs its room for the
  // index.
  void EndSpill();
  virtual bool muxConfig(Object* vidtag) = 0;
  virtual void muxReset() {}
  virtual bool muxUpdate() { return true; }
  // Writes a packet of this track; false when it belongs to another. The argument is passed on.
  virtual bool AddPacket(Packet& packet, IO& io, base::uint64 arg);
  virtual bool CleanFifoData(IO&, base::uint64) { return true; }
  // Moves recorded positions, for a muxer that moves data: all but those at 0, or those behind the
  // point where positions fall back.
  virtual bool UpdateChunkList(int64 delta);
  virtual bool UpdateVfiChunkList(int64 delta);
  // Records a chunk whose header stands at `pos`. Returns its payload size; an empty packet is not
  // recorded.
  virtual int AddChunk(Packet const& packet, base::uint64 pos, int);
  // Records and writes a packet; returns the bytes written, less padding. Here they are the packet
  // as it is: streams that give their chunks a header are over IChunkStream.
  virtual int AddData(IO& io, Packet& packet, base::uint64 arg);
  // Leading bytes that are not stored.
  virtual int MuxOffset(Packet const&) { return 0; }
  virtual int MuxAlign(int n) { return n; }
  virtual bool MultiSamplePerChunk() { return false; }
  virtual int GetSamplesPerChunk() { return 1; }
  virtual bool ConcateModeUpdate() { return true; }

  // False without a stream header.
  [[nodiscard]] bool DemuxConfig(IList* strl, Object* tags);
  void DemuxReset();  // the cursor to the first record
  // The chunk under the cursor, read up to `length` bytes (0: whole); null at the end, the
  // read-failure marker when it cannot be read. Then the cursor and its clock advance. The buffer
  // has 128 bytes of slack.
  virtual Packet* GetPacket(IO& io, int64 length);
  ChunkParam* DemuxNext();
  ChunkParam* DemuxPrev();
  // Moves to the last record that starts at or before a time, or to the last key one there; `pts`
  // (milliseconds) becomes that record's time. A time beyond the end leads to the last record,
  // whatever its flags. Going forward, clocks above 2^31 microseconds are not kept (see SeekFar).
  ChunkParam* DemuxSeek(int64& pts, bool key);
  // DemuxSeek to a key entry that works for any time.
  void SeekFar(int64& pts);
  // The same, and to a key entry also from a time beyond the end.
  void SeekToKey(int64& pts);
  ChunkParam* DemuxPeek() { return DemuxISEnd() ? nullptr : _cursor; }
  ChunkParam* DemuxCurrent() { return _cursor; }
  bool DemuxISEnd() { return _cursor == end(); }
  ChunkParam* begin() { return _list != nullptr ? _list->data() : nullptr; }
  ChunkParam* end() { return _list != nullptr ? _list->data() + _list->size() : nullptr; }
  int64 DemuxCurrentPts() const { return _clock / 1000; }  // milliseconds
  int64 DemuxCurrentClk() const { return _clk; }
  int64 DemuxModifyClk(int64 clk) {
    _clk = clk;
    return 0;
  }
  // Flags for the next packet only, and for the last packet of the track.
  bool DemuxExtFlags(unsigned flags) {
    _extFlags = flags;
    return true;
  }
  bool DemuxEosFlags(unsigned flags) {
    _eosFlags = flags;
    return true;
  }
  unsigned DemuxEosFlags() const { return _eosFlags; }
  virtual bool SetDurPerFrame() { return true; }
  virtual int64 GetKeyFrameGap() { return 1; }  // records from key to key
  virtual bool SetKeyFrameGap() { return true; }
  virtual void AddListChunk(ChunkParam& chunk) { _list->push_back(chunk); }
  // Makes room for this many times the records.
  void ExpectMore(double times) {
    _list->reserve(static_cast<std::size_t>(1.02 * times * static_cast<double>(_list->size())));
  }
  virtual bool demuxConfig(Object*) { return true; }  // the codec's part of DemuxConfig
  virtual void demuxReset() {}
  bool IsVideo() const { return _media != nullptr && _media->IsVideo(); }
  bool IsAudio() const { return _media != nullptr && _media->IsAudio(); }
  bool OnKey() { return !DemuxISEnd() && (_cursor->flags & 1) != 0; }

  // Writes the header's length again after the count has changed.
  void UpdateLength();
  // Whether a record is one of this track's.
  bool Owns(ChunkParam const& chunk) const { return chunk.id == ChunkId(); }
  // The file position behind a chunk and its padding.
  virtual base::uint64 ChunkEnd(ChunkParam const& chunk) const;
  // Takes a chunk that is lost out of what AddChunk has counted.
  virtual void DropChunk(ChunkParam const& chunk);

 protected:
  // The last two characters of the track's chunk ids, such as "dc".
  virtual char const* ChunkSuffix() const { return "dc"; }
  virtual bool KeyFlags() const { return true; }  // whether the index marks key frames

  void SetDurations(unsigned us);  // of all records
  void ShareDuration();            // of the track among the records, where that is not known yet
  unsigned ChunkId() const;
  // Writes a chunk: its id, this value for its size, payload, and padding to an even position.
  // Returns the bytes written, less padding.
  unsigned WriteChunk(IO& io, unsigned sizeField, Packet const& packet) const;
  cstrh* Header() const;
  // What a step over the record under the cursor takes; at the end, that of the last one.
  unsigned StepDuration() { return DemuxISEnd() ? end()[-1].duration : _cursor->duration; }
  // The entries of so many seconds, within what a batch may have.
  static unsigned Batch(int64 unitsPerSecond, int seconds, int unitsPerEntry = 1);

  IMedia* _media = nullptr;
  IList* _strl = nullptr;
  short _trackId = 0;
  bool _owner = false;  // of media and list: on the reading side
  unsigned _rateMul = 0;
  unsigned _count = 0;
  unsigned _bytes = 0;
  unsigned _infoLen = 0;  // bytes of parameter sets found
  ChunkParam* _cursor = nullptr;
  int64 _clock = 0;  // writing: start clock, -1 until the first packet; reading: the cursor's time
  int64 _clk = 0;
  int64 _duration = 0;
  unsigned _durPerFrame = 0;  // microseconds
  unsigned _extFlags = 0;
  unsigned _eosFlags = 0;
  MuxerParam* _para = nullptr;
  std::vector<ChunkParam>* _list = nullptr;
  IListFile* _listFile = nullptr;
  unsigned _entryCount = 0;
  unsigned _seq = 0;
  unsigned _limit = 4096;
  bool _muxFlags[3] = {};  // the third: never spill
  unsigned _spillBatch = 4096;

 private:
  void SeekForward(int64 target, bool key);
  void Pass(int64 target);
  void SeekBackward(int64 target, bool key);
  // What every record takes, so that a seek need not walk over them; 0 when that is not known.
  int64 UniformStep();
  void Skip(int64 records, int64 step);

  std::size_t _uniform = 0;  // records that SetDurations has given one duration
};

}  // namespace kestro::plugin::avi
