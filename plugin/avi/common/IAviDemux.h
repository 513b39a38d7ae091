// The reader of AVI files.
#pragma once

#include "common/IAvi.h"

namespace kestro::plugin::avi {

// Reads one file. Open parses the tree, makes a stream for every track that can be played and gives
// it its index entries. Each call of a play process then chooses a track and returns its next
// packet. Close frees everything.
//
//   if (demux.Open(io))
//     while (Packet* packet = demux.ProcessNormal(io)) ...
//   demux.Close(io);
//
// The caller owns the packets. Null is the end, Packet::ReadFailure() a chunk that could not be
// read. Index offsets are taken as absolute file positions. Entries with neither offset nor size
// are left out; an index before the data ends at the first entry of zeros. Track numbers in the
// index count the streams, so a track without a stream (text, motion JPEG) hides the tracks after
// it: files have such tracks last. There are no locks here: the element has one.
class IAviDemux : public IAvi {
 public:
  using PlayProcess = Packet* (IAviDemux::*)(IO&);

  [[nodiscard]] virtual bool Open(IO& io);
  virtual bool Close(IO& io);
  // Plays all tracks in file order, but only the chosen one of the video tracks.
  virtual Packet* ProcessNormal(IO& io);
  // Returns the key frame at the cursor of the chosen video track, or the next one, and moves the
  // other tracks to its time. At the end the cursor stays there.
  virtual Packet* ProcessFast(IO& io);
  // Returns the key frame before the frame that was read last, or the first frame, and moves the
  // other tracks to its time. It always steps back over that frame and one more, so it passes over
  // a key frame that a seek has found. Null, with the cursor at the first frame, once that frame
  // has been delivered.
  virtual Packet* ProcessBack(IO& io);
  // Play only the chosen video track, or only the first audio track. The others follow its time.
  virtual Packet* ProcessVideo(IO& io);
  virtual Packet* ProcessAudio(IO& io);
  virtual bool ParseIdx(IO& io);
  [[nodiscard]] virtual bool Parse(IO& io);
  virtual bool Update(IO& io);
  virtual bool RestStream();  // moves every track to its first packet

  // Whether a part of the headers or of the index could not be read. The rest can be played.
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
