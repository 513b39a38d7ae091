// The states of the storage that a power cut can leave.
#pragma once

#include <functional>
#include <map>
#include <random>
#include <set>

#include "crash/CrashLog.h"

namespace kestro::crash {

// Goes through the writes, and at each point builds the possible states: what a barrier has made
// durable is there; of what came after it, any set of sectors may be there, each as a whole. The
// length of a file may be the new one, that of its last flush, or 0 where it got its name since, as
// on FAT. A sector that is being overwritten, or appended to, may also turn to garbage.
class CrashStates {
 public:
  struct State {
    test::MemoryIO& file;  // the recording; as it was when the call returns
    Others& others;        // the files next to it that have a name, by number
    int64 promised;        // packets, -1 before the first promise
    int64 garbage;         // the sector of the recording that is garbage, -1 for none
    std::size_t at;        // of the last operation
  };
  using Visit = std::function<bool(State const&)>;  // false: enough

  // `front` bytes of the recording are headers and index; of the states, one in `every` is visited.
  // Nothing is lost before operation `from`. The log outlives the object.
  CrashStates(Ops const& ops, int64 front, unsigned sector, long every, Visit visit,
              std::size_t from = 0);

  // Prefixes, torn writes, single sectors lost, subsets of the sectors of headers and index, old
  // lengths, garbage; then random subsets until `states` states have been visited.
  void Run(long states);

  long Count() const { return _count; }  // without garbage
  // The state that is being visited.
  std::string Describe() const;

 private:
  struct Piece {  // a sector of a write
    Op const* op;
    std::size_t from, size;

    int64 At() const { return op->at + static_cast<int64>(from); }
  };
  struct File {
    std::vector<unsigned char> durable;
    std::vector<Piece> pending;
    std::size_t length = 0;      // what the storage has as such
    std::size_t cut = SIZE_MAX;  // where the durable bytes end, if that is stored
  };
  enum Length { kOld, kNew };

  template <class Visitor>
  void Walk(Visitor visitor);
  void Take(Op const& op);
  void Gather(std::set<int> const& named);
  void Everything();
  void Torn();
  void Subsets();
  void Garbage();
  void Random(int rounds);
  void Emit(Length length, Piece const* garbage = nullptr);
  void Build(Length length);
  void Spoil(Piece const& piece);
  std::vector<unsigned char>& Bytes(int file) {
    return file == 0 ? _file.bytes : _others[file].bytes;
  }
  File const& Of(Piece const& piece) const {
    return _files[static_cast<std::size_t>(piece.op->file)];
  }
  bool LengthsAreStored() const;
  bool Overwrites(Piece const& piece) const;
  bool Changes(Piece const& piece) const;
  int64 Sector(Piece const& piece) const { return piece.At() / _sector; }

  Ops const& _ops;
  int64 const _front;
  unsigned const _sector;
  long const _every;
  Visit const _visit;
  std::size_t const _from;
  std::mt19937 _random{11};
  long _made = 0, _count = 0;
  bool _enough = false;

  // At the current point:
  std::size_t _at = 0;       // of the last operation
  std::vector<File> _files;  // by number
  // The files next to the recording that may have names, last as it is without a power cut.
  std::vector<std::set<int>> _named;
  int64 _promised = -1;
  // With some of them:
  std::vector<Piece> _pieces;  // what may be lost
  std::vector<char> _keep;     // which of them are not
  test::MemoryIO _file;
  Others _others;
};

}  // namespace kestro::crash
