#include "common/IList.h"

#include <algorithm>

#include "common/DataChunks.h"
#include "common/HeaderChunks.h"
#include "common/IndexChunks.h"
#include "common/ListChunks.h"

namespace kestro::plugin::avi {

using base::Convert4;
using base::IOIntReader;
using base::IOIntWriter;

namespace {

template <class T>
IList* Make() {
  return new T();
}

struct Maker {
  unsigned code;
  IList* (*make)();
};

constexpr Maker kMakers[] = {
    {Convert4("RIFF"), Make<criff>},
    {Convert4("hdrl"), Make<chdrl>},
    {Convert4("avih"), Make<cavih>},
    {Convert4("strl"), Make<cstrl>},
    {Convert4("strh"), Make<cstrh>},
    {Convert4("vids"), Make<cvstrf>},
    {Convert4("auds"), Make<castrf>},
    {Convert4("strd"), []() -> IList* { return new cstrd(nullptr, 0); }},
    {Convert4("strn"), []() -> IList* { return new cstrn(nullptr, 0); }},
    {Convert4("INFO"), Make<cinfo>},
    {Convert4("movi"), Make<cmovi>},
    {Convert4("idx1"), []() -> IList* { return new cidx1(0); }},
    {Convert4("JUNK"), []() -> IList* { return new cjunk(nullptr, 0); }},
    {Convert4("root"), Make<croot>},
};

}  // namespace

IList::~IList() {
  for (IList* node = _child; node != nullptr;) {
    IList* const next = node->_next;
    delete node;
    node = next;
  }
}

IList* IList::New(unsigned code) {
  for (auto const& maker : kMakers)
    if (maker.code == code) return maker.make();
  return nullptr;
}

IList* IList::Add(IList* node) {
  if (node == nullptr) return nullptr;
  (_lastChild != nullptr ? _lastChild->_next : _child) = node;
  _lastChild = node;
  return node;
}

void IList::Update(UpdateParam& param) {
  update(param);
  for (IList* node = _child; node != nullptr; node = node->_next) node->Update(param);
}

void IList::Reset() {
  reset();
  for (IList* node = _child; node != nullptr; node = node->_next) node->Reset();
}

void IList::WriteHeader(IO& io) {
  IOIntWriter writer(io);
  writer.Write32(_id);
  writer.Write32(Size());
}

int IList::Fill(IO& io, bool recursive) {
  int64 const start = io.Tell();
  fill(io);
  if (recursive)
    for (IList* node = _child; node != nullptr; node = node->_next) node->Fill(io, true);
  _size = io.Tell() - start - 8;
  IOIntWriter(io).Write32(Size(), start + 4, IO::kBegin);
  return static_cast<int>(Size());
}

int IList::Parse(IO& io, bool recursive) {
  Budget budget;
  return ParseWithin(io, recursive, budget);
}

int IList::ParseWithin(IO& io, bool recursive, Budget& budget) {
  int64 const start = io.Tell();
  if (start == 0 && _size == 0) return 0;
  parse(io);
  if (!recursive) return 1;
  int64 const end = start + _size, outer = budget.end;
  budget.end = std::min(end, outer);
  bool ok = true;
  unsigned format = 0;
  while (ok && io.Tell() < budget.end && ParseChild(io, budget, format, ok)) {
  }
  if (!ok) return 0;
  if (io.Tell() != end + 8) io.Seek(budget.end, IO::kBegin);
  budget.end = outer;
  return 1;
}

// Reads one chunk. False ends the list; clears `ok` when the chunk inside cannot be parsed.
// `format` keeps the format that a "strf" of this list holds, so that it is looked up once.
bool IList::ParseChild(IO& io, Budget& budget, unsigned& format, bool& ok) {
  IOIntReader reader(io);
  unsigned code, length;
  if (--budget.chunks < 0 || !reader.Read32(code) || !reader.Read32(length)) return false;
  bool const isList = code == Convert4("LIST");
  int64 const payload = io.Tell();
  // The list's own parse reads the type again.
  if (isList && (!reader.Read32(code) || !io.Seek(payload, IO::kBegin))) return false;
  if (code == Convert4("strf")) code = format = format != 0 ? format : Getstrftype(this);

  IList* const node = budget.levels > 0 ? New(code) : nullptr;
  if (node == nullptr) return isList && budget.levels > 0 && io.Seek(payload + length, IO::kBegin);
  Add(node);
  node->Size(length);
  --budget.levels;
  ok = node->ParseWithin(io, true, budget) != 0;
  ++budget.levels;
  return ok;
}

IList* IList::Find(unsigned id) {
  if (_id == id) return this;
  for (IList* node = _child != nullptr ? _child : _next; node != nullptr; node = node->_next) {
    if (node->_id == id) return node;
    if (node->_child == nullptr) continue;  // continue with its siblings
    if (IList* found = node->Find(id)) return found;
  }
  return nullptr;
}

unsigned IList::Getstrftype(IList* list) {
  if (list->_id != Convert4("LIST")) return 0;
  auto* header = dynamic_cast<cstrh*>(list->Find("strh"));
  if (header == nullptr) return 0;
  bool const known = header->fccType == Convert4("vids") || header->fccType == Convert4("auds");
  return known ? header->fccType : 0;
}

void IList::operator>>(base::ostream& os) const {
  using base::operator>>;
  os << "plugin/avi/common/IList/31/operator>>:\t" << Name() << "\n";
  _child >> os;
  _next >> os;
}

}  // namespace kestro::plugin::avi
