#include "verify/TreeCheck.h"

#include <algorithm>

namespace kestro::tool {

using base::Convert4;

namespace {

using Tree = std::vector<avi::Chunk>;

// A list whose chunks continue after the end in its header: the reader has included them.
void CheckTooSmall(avi::AviFile& avi, std::size_t at, Findings& findings) {
  Tree const& tree = avi.Tree();
  avi::Chunk const& chunk = tree[at];
  int64 const end = chunk.Payload() + chunk.size;
  if (chunk.id == Convert4("LIST")) {
    findings.Add(found::kMoviSize, chunk.offset, chunk.end - chunk.Payload(), chunk.size);
    return;
  }
  int64 real = end;  // where the last chunk ends
  for (std::size_t i = at + 1; i < tree.size() && tree[i].depth > 0; ++i)
    real = std::max(real, tree[i].end);
  if (real > end) findings.Add(found::kRiffSize, chunk.offset, real - chunk.Payload(), chunk.size);
}

// A list that ends with bytes that are not a chunk.
void CheckRest(avi::AviFile& avi, std::size_t at, Findings& findings) {
  Tree const& tree = avi.Tree();
  avi::Chunk const& list = tree[at];
  int64 filled = list.Data();
  for (std::size_t i = at + 1; i < tree.size() && tree[i].depth > list.depth; ++i)
    if (tree[i].depth == list.depth + 1) filled = avi.Reader().Next(tree[i]);
  int64 const end = std::min(list.end, list.Payload() + list.size);
  if (end - filled > 1)
    findings.Add(found::kListRest, filled, "a chunk", std::to_string(end - filled) + " bytes");
}

}  // namespace

void CheckTree(avi::AviFile& avi, Findings& findings) {
  Tree const& tree = avi.Tree();
  int64 last = 0;  // the end of the last chunk or list
  int riffs = 0;
  for (std::size_t i = 0; i < tree.size(); ++i) {
    avi::Chunk const& chunk = tree[i];
    riffs += chunk.id == Convert4("RIFF");
    if (chunk.id == Convert4("RIFF")) last = chunk.Payload() + chunk.size;
    last = std::max(last, chunk.depth == 0 ? 0 : chunk.end);
    if (chunk.id == Convert4("RIFF") && chunk.Cut())
      findings.Add(found::kRiffSize, chunk.offset, avi.Size() - chunk.Payload(), chunk.size);
    else if (chunk.Cut())
      findings.Add(found::kChunkCut, chunk.offset, chunk.size, chunk.end - chunk.Payload());
    else if (chunk.type != 0 && chunk.end > chunk.Payload() + std::max<int64>(chunk.size, 4))
      CheckTooSmall(avi, i, findings);
    if (chunk.type != 0 && chunk.type != Convert4("movi")) CheckRest(avi, i, findings);
  }
  if (avi.Size() - last > 1)
    findings.Add(found::kTrailing, last, "the end of the file",
                 std::to_string(avi.Size() - last) + " bytes");
  if (riffs > 1) findings.Add(found::kParts, 0, int64{1}, int64{riffs});
  constexpr int64 kMost = 0x7FFFFFFF;
  if (avi.Size() > kMost) findings.Add(found::kLarge, 0, kMost, avi.Size());
}

}  // namespace kestro::tool
