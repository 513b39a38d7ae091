// Checks the movi lists and the index against each other, in one pass over the index: each entry
// against its chunk, and the data between indexed chunks for chunks without an entry.
#pragma once

#include <functional>

#include "verify/Findings.h"
#include "verify/FrameConverter.h"
#include "verify/Streams.h"

namespace kestro::tool {

using base::int64;

class DataCheck {
 public:
  // All references must outlive the object. Counts into `streams`. `deep`: also check the video
  // data; `advance` is called with the position reached.
  DataCheck(avi::AviFile& avi, std::vector<Stream>& streams, bool deep, Findings& findings,
            std::function<void(int64)> const& advance);
  void Run();

 private:
  // The index: IndexCheck.cpp.
  bool FindBase();
  void CheckEntry(avi::IndexEntry entry);
  void CheckHole();
  bool CheckFields(avi::IndexEntry const& entry);
  bool FindChunk(avi::IndexEntry const& entry, avi::Chunk& chunk);
  Stream* StreamOf(unsigned id, int64 offset);
  void CheckSize(avi::IndexEntry const& entry, avi::Chunk& chunk);
  void CheckKey(avi::IndexEntry const& entry, Stream& stream);

  // The data. An index covers that of the first movi list.
  bool CheckIndexedChunk(avi::IndexEntry const& entry, avi::Chunk const& chunk);
  void CheckGap(int64 end, bool indexed);
  void ReportStop(int64 at, int64 end);
  void CheckChunk(avi::Chunk const& chunk);
  int64 CheckPad(int64 end);
  bool IsChunk(int64 at);
  void ReportUnindexed();

  avi::AviFile& _avi;
  avi::RiffReader& _reader;
  std::vector<Stream>& _streams;
  bool _deep;
  Findings& _findings;
  std::function<void(int64)> const& _advance;
  std::vector<FrameConverter> _converters;  // by stream

  std::vector<avi::Chunk> _movis;
  avi::Chunk _movi;  // the current list
  int64 _base =
      0;  // added to offsets when the reader could not determine what they are relative to
  int64 _hole = -1;       // offset of the first of the last empty entries
  int64 _position = 0;    // movi is checked up to here
  bool _complete = true;  // _unindexed has every chunk without an entry
  struct Unindexed {
    int64 offset, size;  // -1 once its entry was found
    unsigned id;
  };
  std::vector<Unindexed> _unindexed;  // in file order
};

}  // namespace kestro::tool
