// The states of the storage that a power cut can leave.
#pragma once

#include <functional>
#include <random>

#include "crash/CrashLog.h"

namespace kestro::crash {

// Walks through what was written, and at each point builds the states that are possible there: what
// a barrier has made durable is as it was written; of what came after it, any set of sectors may
// have reached the storage, each as a whole, and the length of the file may be the old or the new
// one. A sector that is being overwritten may also turn to garbage.
class CrashStates {
 public:
  struct State {
    test::MemoryIO& file;      // the recording; as it was when the call returns
    std::string const* image;  // what the images' name leads to, or null
    int64 promised;            // packets, -1 before the first promise
    int64 garbage;             // the sector that is garbage, -1 for none
  };
  using Visit = std::function<bool(State const&)>;  // false: enough

  // `front` bytes of the recording are headers and index; of the states, one in `every` is visited.
  // The log outlives the object.
  CrashStates(Ops const& ops, int64 front, unsigned sector, long every, Visit visit);

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
  };
  enum Length { kOld, kNew };

  template <class Visitor>
  void Walk(Visitor visitor);
  void Take(Op const& op);
  void Gather(int image);
  void Everything();
  void Torn();
  void Subsets();
  void Garbage();
  void Random(int rounds);
  void Emit(Length length, int64 garbage = -1);
  bool Overwrites(Piece const& piece) const;
  bool Changes(Piece const& piece) const;
  int64 Sector(Piece const& piece) const { return piece.At() / _sector; }

  Ops const& _ops;
  int64 const _front;
  unsigned const _sector;
  long const _every;
  Visit const _visit;
  std::mt19937 _random{11};
  long _made = 0, _count = 0;
  bool _enough = false;

  // At the current point:
  std::size_t _at = 0;       // of the last operation
  std::vector<File> _files;  // by number
  std::vector<int> _named;   // the images that the name may lead to, 0 for none
  int64 _promised = -1;
  // Of the current image:
  int _image = 0;
  std::vector<Piece> _pieces;  // what may be lost
  std::vector<char> _keep;     // which of them are not
  test::MemoryIO _file;
  std::string _imageBytes;
};

}  // namespace kestro::crash
