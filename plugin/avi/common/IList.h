// The RIFF chunk tree.
#pragma once

#include "base/FourCC.h"
#include "base/IO.h"
#include "base/Object.h"

namespace kestro::plugin::avi {

using base::int64;
using base::IO;

// Passed down the tree by IList::Update, unchanged.
struct UpdateParam {};

// A chunk of the file and the chunks inside it. A node owns its children: deleting the root frees
// the tree. Files are written and read in the order of the tree:
//
//   root->Fill(io, true);            // headers and payloads, each size patched once it is known
//   root->Parse(io, true);           // the reverse; the root's size is the stream's
//
// Chunks are never aligned here: sizes and offsets are exactly the bytes written. One thread at a
// time.
class IList : public base::object {
 public:
  // The name gives the id; a literal, since it is not copied.
  explicit IList(char const* name) : object(name), _id(base::Convert4(name)) {}
  ~IList() override;

  // The node for a four-character code, null for an unknown one. "strf" has no node of its own: its
  // codes are "vids" and "auds".
  static IList* New(unsigned code);
  static IList* New(char const* name) { return New(base::Convert4(name)); }

  // Appends a child and takes it over; a null node is ignored. Returns the node.
  virtual IList* Add(IList* node);
  virtual void Update(UpdateParam& param);
  // Writes the chunk, and its children when recursive, then patches its size. Returns the payload
  // bytes written (low 32 bits). Failures are the stream's to remember.
  virtual int Fill(IO& io, bool recursive);
  // Reads the chunk whose 8-byte header has been consumed and whose size is set. A list of unknown
  // type is passed over, an unknown leaf ends the list that holds it. 0 for an empty stream.
  virtual int Parse(IO& io, bool recursive);
  virtual void Reset();

  // The hooks of a chunk class: its own bytes.
  virtual void update(UpdateParam&) {}
  virtual void fill(IO& io) { WriteHeader(io); }
  virtual void parse(IO&) {}
  virtual void reset() {}

  // Which format a stream list's "strf" holds: "vids", "auds" or 0.
  virtual unsigned Getstrftype(IList* list);

  // The first node with this id in the subtree; below a leaf the search goes on with its following
  // siblings. Lists are all found as "LIST".
  IList* Find(unsigned id);
  IList* Find(char const* name) { return Find(base::Convert4(name)); }

  void operator>>(base::ostream& os) const override;

  unsigned Size() const { return static_cast<unsigned>(_size); }  // payload bytes, low 32 bits
  void Size(unsigned size) { _size = size; }
  unsigned Id() const { return _id; }
  unsigned ListType() const { return _listType; }  // as parsed
  IList* Next() const { return _next; }
  IList* Prev() const { return _prev; }  // not kept: always null
  IList* Child() const { return _child; }
  IList* Parent() const { return _parent; }  // not kept: always null

 protected:
  void WriteHeader(IO& io);  // id and size

  int64 _size = 0;
  unsigned _id;
  unsigned _listType = 0;

 private:
  // What a hostile file may cost: every chunk header met counts, and is met once, since no list
  // leads beyond the end of the one that holds it.
  struct Budget {
    int chunks = 65536;
    int levels = 16;
    int64 end = INT64_MAX;
  };
  int ParseWithin(IO& io, bool recursive, Budget& budget);
  bool ParseChild(IO& io, Budget& budget, unsigned& format, bool& ok);

  IList* _next = nullptr;
  IList* _prev = nullptr;
  IList* _child = nullptr;
  IList* _parent = nullptr;
  IList* _lastChild = nullptr;
};

}  // namespace kestro::plugin::avi
