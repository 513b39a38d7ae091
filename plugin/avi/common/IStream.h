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

// Shared by a muxer and its streams.
struct MuxerParam {
  int idx1WithTmpFile = -1;  // seconds of index per spill batch; 0: a fixed size, -1: never spill
  char diskName = 0;         // drive letter of spill files, 0 for the temporary folder
  int64 entries = 0;         // in the index, of all streams; counted by them
  bool spillFault = false;   // set by a stream whose entries could not be spilled
  bool indexLost = false;    // set by a stream whose spilled entries could not be read back
};

// When writing, a stream turns packets into chunks of "movi" and index entries, and counts them for
// its header:
//
//   IStream* st = IStream::New("h264", "h264", 0);   // by codec, through the registry
//   st->MuxReset();
//   st->MuxConfig(list, media, vidtag, &para);       // builds Strl(); on failure do not use it
//   hdrl->Add(st->Strl());
//   ... st->AddPacket(packet, io, 0);                // false: the packet is of another track
//   st->MuxUpdate();                                 // before the headers are written
//   delete st;
//
// The muxer owns the list of entries, which all its streams share, and media, tag set and
// parameters. The IO remembers write failures.
//
// When reading, it moves a cursor over the index entries of its track and makes packets of their
// chunks:
//
//   IStream* st = IStream::New("h264", "h264", 0);
//   st->DemuxConfig(strl, nullptr);                  // rebuilds Media()
//   ... st->AddListChunk(entry);                     // the entries of this track, in file order
//   st->DemuxReset();
//   st->SetDurPerFrame();                            // gives the entries their durations
//   st->SetKeyFrameGap();
//   ... st->GetPacket(io, 0);                        // reads the chunk at the cursor, then
//   advances delete st;
//
// It then owns list and media; the media may be null for a track that cannot be played. Times are
// microseconds in entries and in the cursor's clock, milliseconds for seeking, and nanoseconds in
// packets. One thread at a time.
class IStream : public Object {
 public:
  // Null for an unknown codec, and for a name that is empty or contains a "-".
  [[nodiscard]] static IStream* New(char const* codec, char const* name, int trackId);

  explicit IStream(char const* name) : Object(name) {}
  ~IStream() override;

  [[nodiscard]] bool MuxConfig(std::vector<ChunkParam>* list, IMedia* media, Object* vidtag,
                               MuxerParam* para);
  void MuxReset();

  int TrackID() const { return _trackId; }
  void TrackID(int id) { _trackId = static_cast<short>(id); }
  IMedia* Media() const { return _media; }
  // The track's header list, which the muxer adds to its tree; null for a track without one.
  IList* Strl() const { return _strl; }
  int64 Duration() const { return _duration; }  // milliseconds
  unsigned EntryCount() const { return _entryCount; }
  // The length in the header: samples or frames; for a video track that does not count, its
  // entries.
  unsigned Length() const { return _count == 0 && _media->IsVideo() ? _entryCount : _count; }
  unsigned Bytes() const { return _bytes; }
  unsigned SpillBatch() const { return _spillBatch; }
  void MuxFlags(bool first, bool second, bool noSpill);
  void Limit(unsigned entries) { _limit = entries; }  // the periodic-sync muxer's reserve

  // Brings spilled entries back, and the header up to date.
  virtual bool MuxUpdate();
  // Deletes the spill file, once its entries are back: a full device needs the room for the index.
  void EndSpill();
  virtual bool muxConfig(Object* vidtag) = 0;
  virtual void muxReset() {}
  virtual bool muxUpdate() { return true; }
  // Writes a packet of this track; false when it is of another. `arg` is passed on.
  virtual bool AddPacket(Packet& packet, IO& io, base::uint64 arg);
  // Adds an index entry for a chunk whose header is at `pos`. Returns the payload size; an empty
  // packet gets no entry.
  virtual int AddChunk(Packet const& packet, base::uint64 pos, int);
  // Adds the index entry of a packet and writes it. Returns the bytes written, without padding.
  // This one writes the packet as it is; streams that write chunk headers derive from IChunkStream.
  virtual int AddData(IO& io, Packet& packet, base::uint64 arg);
  // How many leading bytes are not stored.
  virtual int MuxOffset(Packet const&) { return 0; }

  // False without a stream header.
  [[nodiscard]] bool DemuxConfig(IList* strl, Object* tags);
  void DemuxReset();  // moves the cursor to the first entry
  // Reads the chunk at the cursor, up to `length` bytes (0: all of it), then advances the cursor
  // and its clock. Null at the end, the read-failure marker when the chunk cannot be read. The
  // buffer has 128 spare bytes.
  virtual Packet* GetPacket(IO& io, int64 length);
  ChunkParam* DemuxNext();
  ChunkParam* DemuxPrev();
  // Moves to the last entry, or the last key entry, that starts at or before a time; `pts`
  // (milliseconds) becomes the time of that entry. A time beyond the end leads to the last entry,
  // key or not. Going forward, times above 2^31 microseconds are not kept (see SeekFar).
  ChunkParam* DemuxSeek(int64& pts, bool key);
  // DemuxSeek to a key entry, for any time.
  void SeekFar(int64& pts);
  // The same; for a time beyond the end, to the last key entry.
  void SeekToKey(int64& pts);
  ChunkParam* DemuxPeek() { return DemuxISEnd() ? nullptr : _cursor; }
  ChunkParam* DemuxCurrent() { return _cursor; }
  bool DemuxISEnd() { return _cursor == end(); }
  ChunkParam* begin() { return _list != nullptr ? _list->data() : nullptr; }
  ChunkParam* end() { return _list != nullptr ? _list->data() + _list->size() : nullptr; }
  int64 DemuxCurrentPts() const { return _clock / 1000; }  // milliseconds
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
  virtual int64 GetKeyFrameGap() { return 1; }  // entries from key frame to key frame
  virtual bool SetKeyFrameGap() { return true; }
  virtual void AddListChunk(ChunkParam& chunk) { _list->push_back(chunk); }
  // Reserves memory for this many times the entries.
  void ExpectMore(double times) {
    _list->reserve(static_cast<std::size_t>(1.02 * times * static_cast<double>(_list->size())));
  }
  virtual bool demuxConfig(Object*) { return true; }  // what DemuxConfig does for the codec
  virtual void demuxReset() {}
  bool IsVideo() const { return _media != nullptr && _media->IsVideo(); }
  bool IsAudio() const { return _media != nullptr && _media->IsAudio(); }
  bool OnKey() { return !DemuxISEnd() && (_cursor->flags & 1) != 0; }

  // Updates the length in the header after the count has changed.
  void UpdateLength();
  // Whether an entry is of this track.
  bool Owns(ChunkParam const& chunk) const { return chunk.id == ChunkId(); }
  // The file position after a chunk and its padding.
  virtual base::uint64 ChunkEnd(ChunkParam const& chunk) const;
  // Subtracts a lost chunk from what AddChunk has counted.
  virtual void DropChunk(ChunkParam const& chunk);

  // Compatibility: callers and subclasses outside rely on these; nothing here calls them. The two
  // updates move positions, for a muxer that moves data: all but those at 0, or those after the
  // point where positions decrease.
  virtual bool UpdateChunkList(int64 delta);
  virtual bool UpdateVfiChunkList(int64 delta);
  virtual bool CleanFifoData(IO&, base::uint64) { return true; }
  virtual bool ConcateModeUpdate() { return true; }
  virtual int MuxAlign(int n) { return n; }
  virtual bool MultiSamplePerChunk() { return false; }
  virtual int GetSamplesPerChunk() { return 1; }
  void MuxResetPts() { _clock = -1; }
  int64 DemuxCurrentClk() const { return _clk; }
  int64 DemuxModifyClk(int64 clk) {
    _clk = clk;
    return 0;
  }

 protected:
  // The last two characters of the track's chunk ids, such as "dc".
  virtual char const* ChunkSuffix() const { return "dc"; }
  virtual bool KeyFlags() const { return true; }  // whether the index marks key frames

  void SetDurations(unsigned us);  // of all entries
  void ShareDuration();            // divides the track's duration among entries without one
  unsigned ChunkId() const;
  // Writes a chunk: its id, the given size field, the payload, and padding to an even position.
  // Returns the bytes written, without padding.
  unsigned WriteChunk(IO& io, unsigned sizeField, Packet const& packet) const;
  cstrh* Header() const;
  // The duration of the entry at the cursor; at the end, that of the last entry.
  unsigned StepDuration() { return DemuxISEnd() ? end()[-1].duration : _cursor->duration; }
  // The number of entries in so many seconds, limited to the largest batch.
  static unsigned Batch(int64 unitsPerSecond, int seconds, int unitsPerEntry = 1);

  IMedia* _media = nullptr;
  IList* _strl = nullptr;
  short _trackId = 0;
  bool _owner = false;  // of media and list: when reading
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
  void SkipUntil(int64 target);
  void SeekBackward(int64 target, bool key);
  // The duration of every entry, so that a seek need not walk over them; 0 if they differ.
  int64 UniformStep();
  void Skip(int64 entries, int64 step);

  std::size_t _uniform = 0;  // entries to which SetDurations has given one duration
};

}  // namespace kestro::plugin::avi
