// The RIFF chunk tree.
#pragma once

#include "base/FourCC.h"
#include "base/IO.h"
#include "base/Object.h"

namespace kestro::plugin::avi {

using base::int64;
using base::IO;

// Compatibility: passed down the tree by IList::Update; it has no members.
struct UpdateParam {};

// A chunk of the file and the chunks inside it. A node owns its children: deleting the root frees
// the tree. Files are written and read in the order of the tree:
//
//   root->Fill(io, true);            // writes headers and payloads, and patches each size
//   root->Parse(io, true);           // reads them; the root has the size of the stream
//
// Nothing is aligned here: sizes and offsets count exactly the bytes written. One thread at a time.
class IList : public base::object {
 public:
  // The name is the id. It is not copied: pass a literal.
  explicit IList(char const* name) : object(name), _id(base::Convert4(name)) {}
  ~IList() override;

  // Makes the node for a four-character code; null for an unknown one. "strf" has no node of its
  // own: use "vids" or "auds".
  static IList* New(unsigned code);
  static IList* New(char const* name) { return New(base::Convert4(name)); }

  // Appends a child and takes ownership of it; ignores null. Returns the node.
  virtual IList* Add(IList* node);
  virtual void Update(UpdateParam& param);
  // Writes the chunk, and its children if `recursive`, then patches its size. Returns the payload
  // bytes written (low 32 bits). The stream remembers failures.
  virtual int Fill(IO& io, bool recursive);
  // Reads the chunk whose 8-byte header has been read and whose size is set. Skips a list of
  // unknown type; an unknown leaf ends the list that contains it. Returns 0 for an empty stream.
  virtual int Parse(IO& io, bool recursive);
  virtual void Reset();

  // A chunk class overrides these for its own bytes.
  virtual void update(UpdateParam&) {}
  virtual void fill(IO& io) { WriteHeader(io); }
  virtual void parse(IO&) {}
  virtual void reset() {}

  // Which format a stream list's "strf" holds: "vids", "auds" or 0.
  virtual unsigned Getstrftype(IList* list);

  // The first node with this id in the subtree; from a leaf, the search continues with the siblings
  // after it. All lists have the id "LIST".
  IList* Find(unsigned id);
  IList* Find(char const* name) { return Find(base::Convert4(name)); }

  void operator>>(base::ostream& os) const override;

  unsigned Size() const { return static_cast<unsigned>(_size); }  // payload bytes, low 32 bits
  void Size(unsigned size) { _size = size; }
  unsigned Id() const { return _id; }
  unsigned ListType() const { return _listType; }  // as parsed
  IList* Next() const { return _next; }
  IList* Child() const { return _child; }

  // Compatibility: always null.
  IList* Prev() const { return nullptr; }
  IList* Parent() const { return nullptr; }

 protected:
  void WriteHeader(IO& io);  // id and size

  int64 _size = 0;
  unsigned _id;
  unsigned _listType = 0;

 private:
  // Limits what a hostile file can cost. Every chunk header counts, and is read only once, since no
  // list extends beyond the one that contains it.
  struct Budget {
    int chunks = 65536;
    int levels = 16;
    int64 end = INT64_MAX;
  };
  int ParseWithin(IO& io, bool recursive, Budget& budget);
  bool ParseChild(IO& io, Budget& budget, unsigned& format, bool& ok);

  IList* _next = nullptr;
  IList* _child = nullptr;
  IList* _lastChild = nullptr;
};

}  // namespace kestro::plugin::avi
