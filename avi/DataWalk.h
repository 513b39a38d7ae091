// Finds the data chunks without an index entry, in one pass over the data and the index.
#pragma once

#include <vector>

#include "avi/RiffReader.h"

namespace kestro::avi {

// Reads the data only between the chunks that have an entry.
//
//   DataWalk walk(reader, movis, sink);
//   for (...) walk.Entry(begin, end);   // for each entry of an index in file order
//   walk.Finish();
class DataWalk {
 public:
  // `movis`: the data lists in file order. `sink` is called for the chunks without an entry.
  DataWalk(RiffReader& reader, std::vector<Chunk> movis, RiffReader::DataSink sink)
      : _reader(reader), _movis(std::move(movis)), _sink(std::move(sink)) {}

  // A chunk with an entry: from its header to after its pad byte. Returns false and does nothing
  // when it begins before the end of the previous one.
  bool Entry(int64 begin, int64 end);
  void Finish();
  // The offset of the first bytes that are not a chunk; -1 if there are none.
  int64 Stopped() const { return _stopped; }

 private:
  void Scan(int64 limit);

  RiffReader& _reader;
  std::vector<Chunk> const _movis;
  RiffReader::DataSink const _sink;
  std::size_t _list = 0;  // the current list
  int64 _position = 0;    // everything before it is done
  int64 _stopped = -1;
};

}  // namespace kestro::avi
