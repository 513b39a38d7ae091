// Checks the movi lists and the index against each other: every entry against its chunk, every
// chunk for its entry. One pass over the index; what lies between the chunks that it names is
// searched as it is passed.
#pragma once

#include <functional>

#include "verify/Findings.h"
#include "verify/Streams.h"

namespace kestro::tool {

using base::int64;

class DataCheck {
 public:
  // All outlive the check, which counts into the streams. `deep` looks into the video data too;
  // `advance` is told how far the check has come.
  DataCheck(avi::AviFile& avi, std::vector<Stream>& streams, bool deep, Findings& findings,
            std::function<void(int64)> const& advance);
  void Run();

 private:
  // The index.
  bool FindBase();
  void Entry(avi::IndexEntry entry);
  bool Known(avi::IndexEntry const& entry);
  Stream* StreamOf(unsigned id, int64 offset);
  void Resized(avi::IndexEntry const& entry, avi::Chunk& chunk);
  void Key(avi::IndexEntry const& entry, Stream& stream);

  // The data of the first movi list, which is what an index covers.
  bool Cover(avi::IndexEntry const& entry, avi::Chunk const& chunk);
  void Gap(int64 end, bool indexed);
  void Stopped(int64 at, int64 end);
  void Data(avi::Chunk const& chunk);
  int64 Pad(int64 end);
  bool Follows(int64 at);
  void ReportUnindexed();

  avi::AviFile& _avi;
  avi::RiffReader& _reader;
  std::vector<Stream>& _streams;
  bool _deep;
  Findings& _findings;
  std::function<void(int64)> const& _advance;

  std::vector<avi::Chunk> _movis;
  avi::Chunk _movi;       // the one under check
  int64 _base = 0;        // added to offsets where the reader did not find out what they count from
  int64 _hole = -1;       // the first empty entry
  int64 _position = 0;    // movi is checked up to here
  bool _complete = true;  // every chunk without an entry is listed
  struct Unindexed {
    int64 offset, size;  // -1 once an entry has come
    unsigned id;
  };
  std::vector<Unindexed> _unindexed;  // in file order
};

}  // namespace kestro::tool
