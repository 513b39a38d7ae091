// The reader of AVI files.
#pragma once

#include "common/IAvi.h"

namespace kestro::plugin::avi {

// Reads one file: Open parses the tree, makes a stream of every track that can be played and gives
// it its index entries; each call of a play process then chooses a track and returns its next
// packet; Close frees everything.
//
//   if (demux.Open(io))
//     while (Packet* packet = demux.ProcessNormal(io)) ...
//   demux.Close(io);
//
// Packets are the caller's. Null is the end, Packet::ReadFailure() a chunk that could not be read.
// Index offsets are taken as absolute file positions. Entries without offset and size are left out;
// an index before the data ends at the first entry of zeros. A track's number in the index
// counts the streams, so that a track without one (text, motion JPEG) before others hides
// them: files have it last. No locks: the element has one.
class IAviDemux : public IAvi {
 public:
  using PlayProcess = Packet* (IAviDemux::*)(IO&);

  virtual bool Open(IO& io);
  virtual bool Close(IO& io);
  // All tracks, in file order; of the video tracks the chosen one only.
  virtual Packet* ProcessNormal(IO& io);
  // The key frame under the cursor of the chosen video track, or the next one; at the end the
  // cursor stays there. The others follow.
  virtual Packet* ProcessFast(IO& io);
  // The key frame before the frame that was read last, or the first frame. A step over that frame
  // and one more are always made: a key frame that a seek has led to is passed over. Null, with the
  // cursor at the first frame, once that was delivered. The others follow.
  virtual Packet* ProcessBack(IO& io);
  // The chosen video track, or the first sound track, alone. The others follow.
  virtual Packet* ProcessVideo(IO& io);
  virtual Packet* ProcessAudio(IO& io);
  virtual bool ParseIdx(IO& io);
  virtual bool Parse(IO& io);
  virtual bool Update(IO& io);
  virtual bool RestStream();  // every track to its first packet

  // Whether a part of the headers or of the index could not be read. What they name can be played.
  bool Incomplete() const { return _incomplete; }

 protected:
  IStream* VideoStream(unsigned index) const;  // counted among video streams; null if there is none
  int64 _duration = 0;                         // of the first video stream, milliseconds
  int64 _moviOffset = 0;
  int64 _currentPts = 0;  // of the last packet chosen, milliseconds; -1 when forgotten
  unsigned _videoIndex = 0;
  bool _incomplete = false;

 private:
  IList* FirstStreamList() const;
  cmovi const* Movi() const;
  void AddStreams();
  void AddEntries(IO& io, int64 bytes, bool toZeros);
  bool AddEntry(unsigned char const* at);
  Packet* Lead(IO& io, IStream& leader);
};

}  // namespace kestro::plugin::avi
