// The writer of AVI files.
#pragma once

#include <mutex>
#include <vector>

#include "common/DataChunks.h"
#include "common/IAvi.h"

namespace kestro::plugin::avi {

// Writes one file after another. For each:
//
//   Config();                      // builds the chunk tree from the tag set
//   Open(io, media);               // writes the head; makes a stream for each media it accepts
//   ... Process(io, packet);       // writes a chunk and adds an index entry; any thread
//   Close(io);                     // writes index and sizes; frees streams and tree
//
//   RIFF AVI | LIST hdrl (avih, strl ...) | [LIST INFO (isft)] | [JUNK] | LIST movi | idx1
//
// With the index first, idx1 has a reserved size and stands before movi. Index offsets are absolute
// file positions. Process holds a mutex; no other call may overlap with it.
//
// The IO remembers write failures. Close cuts off what the IO has lost (GoodEnd below Size)
// together with its index entries: a file on a full disk ends with its last whole chunk and a
// correct index. Where the disk lacks room for the index, it takes the place of the last chunks.
class IAviMuxer : public IAvi {
 public:
  IAviMuxer();
  ~IAviMuxer() override;

  [[nodiscard]] virtual bool Open(IO& io, std::vector<IMedia*>& media);
  virtual bool Close(IO& io);
  [[nodiscard]] virtual bool Process(IO& io,
                                     Packet& packet);  // false: no stream has this packet's media
  virtual bool process(IO&, Packet&) { return true; }
  virtual bool Config();
  virtual bool AddStream(IMedia* media);
  virtual bool updateStream();
  virtual bool updateBox();
  virtual bool fillRiff(IO& io);
  virtual bool fillHdrl(IO& io);
  virtual bool fillInfo(IO& io);
  virtual bool fillJunk(IO& io);
  virtual bool fillMovi(IO& io);
  virtual bool fillIdx1(IO& io);
  virtual bool SetRsvdSize(IStream*, unsigned) { return true; }

  bool StreamConfig(IO& io, std::vector<IMedia*>& media);
  static base::uint64 getTimeStamp();  // the current time, seconds since 1904-01-01

 protected:
  // Frees streams and tree, and resets every value that belongs to one file.
  void Abandon();
  // Whether the next file has its index before its data; called when its tree is built. Here the
  // tag set decides ("idx1_first").
  virtual bool IndexFirst() const;
  // How many index entries the next file has memory for; `entries` suits ordinary recordings.
  virtual std::size_t Reserved(std::size_t entries) const { return entries; }
  int64 EntryCount() const { return _para.entries; }  // of all tracks
  // The bytes of an idx1 chunk with so many entries.
  static constexpr int64 IndexedSize(int64 entries) { return 8 + 16 * entries; }
  // The size of the file once it is closed, with `more` further bytes in movi and `entries` further
  // index entries.
  int64 FinishedSize(IO& io, int64 more, int64 entries) const;

  // The steps of Open.
  [[nodiscard]] bool StartFile(IO& io, std::vector<IMedia*>& media);
  [[nodiscard]] bool WriteHead(IO& io);
  void StartMovi(IO& io);

  // The steps of Close. FillHead writes sizes and headers, once _fileSize is known.
  void FillHead(IO& io);
  [[nodiscard]] bool WriteIdx1(IO& io);
  // After a failed flush: drops what the device did not take.
  void CutLost(IO& io);
  // After an index that the device did not take.
  bool RetryIdx1(IO& io);

  std::vector<ChunkParam>* _list = nullptr;  // the idx1 node's
  IList* _riff = nullptr;
  IList* _hdrl = nullptr;
  IList* _movi = nullptr;
  IList* _idx1 = nullptr;
  cjunk* _junk = nullptr;
  IList* _info = nullptr;
  int64 _idx1Pos = 0;              // of its tag
  int64 _keptEnd = 0;              // of the chunks whose entries are already in the file's index
  unsigned _idx1RsvdSize = 32768;  // payload bytes reserved when idx1 comes first
  unsigned _fileSize = 0;
  MuxerParam _para;
  Object* _vidtag;
  Fraction _frameRate;
  bool _hasInfo = false;
  bool _hasJunk = false;
  bool _idx1First = false;  // of the current file; the tag set may change in the meantime
  bool _periodicSync = false;
  int64 _periodicSyncHeaderSize = 0;  // with periodic sync: where movi's contents begin
  int64 _periodicSyncJunkSize = -1;   // payload of the padding JUNK, -1 without one
  int64 _totalSize = 0;
  std::mutex _mutex;

  // Compatibility: subclasses outside know these. Here they are set and passed on, never read.
  base::uint64 _createTime = 0;
  base::uint64 _streamBase = 0;
  int64 _moviPos = 0;  // of its tag
  unsigned _openCounter = 0;
  int _hasAudio = 0;
  bool _streamFlag0 = false, _streamFlag1 = false, _streamFlag2 = false;

 private:
  bool PadHead(IO& io);
  void ReserveIdx1(IO& io);
  static int64 Bytes(IList const* chunk);  // header and payload, 0 for none
  void RestoreOrder();
  base::uint64 ChunkEnd(ChunkParam const& chunk) const;
  std::size_t WholeChunks(int64 end) const;
  bool KeepChunks(IO& io, std::size_t count);

  Object* const _ownTag;
};

}  // namespace kestro::plugin::avi
