// One pass over the data together with its index: what no entry names.
#pragma once

#include <vector>

#include "avi/RiffReader.h"

namespace kestro::avi {

// Where the index covers the data, nothing but the index is read: only what lies between the chunks
// that it names is looked at.
//
//   DataWalk walk(reader, movis, sink);
//   for (...) walk.Entry(begin, end);   // of an index in the order of the data, where there is one
//   walk.Rest();
class DataWalk {
 public:
  // `movis` are the lists of data in file order. `sink` gets the chunks without an entry.
  DataWalk(RiffReader& reader, std::vector<Chunk> movis, RiffReader::DataSink sink)
      : _reader(reader), _movis(std::move(movis)), _sink(std::move(sink)) {}

  // A chunk that an entry names, its pad byte included. False, and nothing is done, when it begins
  // before the end of the last one.
  bool Entry(int64 begin, int64 end);
  void Rest();
  // Where bytes that are no chunk were met first; -1 where there were none.
  int64 Stopped() const { return _stopped; }

 private:
  void Scan(int64 limit);

  RiffReader& _reader;
  std::vector<Chunk> const _movis;
  RiffReader::DataSink const _sink;
  std::size_t _list = 0;  // the list that was reached
  int64 _position = 0;    // everything before it is settled
  int64 _stopped = -1;
};

}  // namespace kestro::avi
