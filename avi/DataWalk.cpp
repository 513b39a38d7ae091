#include "avi/DataWalk.h"

#include <algorithm>

namespace kestro::avi {

static constexpr int64 kHeader = 8;  // the shortest chunk

bool DataWalk::Entry(int64 begin, int64 end) {
  if (begin < _position - 1) return false;  // the pad byte may be missing
  Scan(begin);
  _position = std::max(_position, end);
  return true;
}

void DataWalk::Finish() { Scan(INT64_MAX); }

void DataWalk::Scan(int64 limit) {
  for (; _list < _movis.size(); ++_list) {
    Chunk const& movi = _movis[_list];
    int64 const begin = std::max(_position, movi.Data()), end = std::min(limit, movi.end);
    if (end - begin >= kHeader) {
      int64 const stopped = _reader.ScanData(begin, end, _sink);
      if (_stopped < 0 && end - stopped >= kHeader) _stopped = stopped;
    }
    if (limit < movi.end) return;
  }
}

}  // namespace kestro::avi
