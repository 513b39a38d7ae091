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
  bool spillFault = false;   // set by a stream whose entries could not be spilled or read back
};

// A track that is being written. Turns packets into chunks of "movi" and records of the index,
// and keeps the counters of its header:
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
// the muxer's too. Used by one thread at a time. Write failures are the IO's to remember.
class IStream : public Object {
 public:
  // Null for an unknown codec, and for a name that is empty or holds a "-".
  static IStream* New(char const* codec, char const* name, int trackId);

  explicit IStream(char const* name) : Object(name) {}
  ~IStream() override;

  bool MuxConfig(std::vector<ChunkParam>* list, IMedia* media, Object* vidtag, MuxerParam* para);
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
  // Records and writes a packet; returns the bytes written, less padding.
  virtual int AddData(IO& io, Packet& packet, base::uint64 arg);
  // Leading bytes that are not stored.
  virtual int MuxOffset(Packet const&) { return 0; }
  virtual int MuxAlign(int n) { return n; }
  virtual bool MultiSamplePerChunk() { return false; }
  virtual int GetSamplesPerChunk() { return 1; }
  virtual bool ConcateModeUpdate() { return true; }

  // Writes the header's length again after the count has changed.
  void UpdateLength();
  // Whether a record is one of this track's.
  bool Owns(ChunkParam const& chunk) const { return chunk.id == ChunkId(); }
  // The file position behind a chunk and its padding.
  virtual base::uint64 ChunkEnd(ChunkParam const& chunk) const;
  // Takes a chunk that is lost out of the counters.
  virtual void DropChunk(ChunkParam const& chunk);

 protected:
  // The last two characters of the track's chunk ids, such as "dc".
  virtual char const* ChunkSuffix() const { return "dc"; }
  virtual bool KeyFlags() const { return true; }  // whether the index marks key frames
  // What a chunk of this size adds to the header's length.
  virtual unsigned Units(unsigned size) const;

  unsigned ChunkId() const;
  // Writes a chunk's header, payload and padding to an even position, and counts it; returns the
  // bytes written, less padding.
  virtual int WriteData(IO& io, Packet& packet);
  cstrh* Header() const;
  // The entries of so many seconds, within what a batch may have.
  static unsigned Batch(int64 unitsPerSecond, int seconds, int unitsPerEntry = 1);

  IMedia* _media = nullptr;
  IList* _strl = nullptr;
  short _trackId = 0;
  unsigned _rateMul = 0;
  unsigned _count = 0;
  unsigned _bytes = 0;
  int64 _clock = 0;  // start clock, -1 until the first packet
  int64 _duration = 0;
  MuxerParam* _para = nullptr;
  std::vector<ChunkParam>* _list = nullptr;
  IListFile* _listFile = nullptr;
  unsigned _entryCount = 0;
  unsigned _limit = 4096;
  bool _muxFlags[3] = {};  // the third: never spill
  unsigned _spillBatch = 4096;
};

}  // namespace kestro::plugin::avi
