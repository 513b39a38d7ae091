#include "crash/Plants.h"

#include <algorithm>
#include <functional>

namespace kestro::crash {

namespace {

// The operations of one sync, from behind the last promise to its own: data and its barrier, then
// index and headers, or an image, and barriers.
using Edit = std::function<void(Ops& sync)>;

// Applies a change to every sync but the first and the last, which also open and close the file.
Ops EditSyncs(Ops const& ops, Edit const& edit) {
  Ops edited, sync;
  int promises = 0;
  auto const all =
      std::count_if(ops.begin(), ops.end(), [](Op const& op) { return op.kind == Op::kPromise; });
  for (Op const& op : ops) {
    sync.push_back(op);
    if (op.kind != Op::kPromise) continue;
    ++promises;
    if (promises > 1 && promises < all) edit(sync);
    edited.insert(edited.end(), sync.begin(), sync.end());
    sync.clear();
  }
  edited.insert(edited.end(), sync.begin(), sync.end());
  return edited;
}

// Where a sync's n-th barrier is, counted from 0, or from -1 at the end.
Ops::iterator Barrier(Ops& sync, int n) {
  std::vector<Ops::iterator> found;
  for (auto op = sync.begin(); op != sync.end(); ++op)
    if (op->IsBarrier()) found.push_back(op);
  return found[static_cast<std::size_t>(n < 0 ? n + static_cast<int>(found.size()) : n)];
}

// What refers to the data goes in front of it, as a whole or only the entries of the index.
void FrontFirst(Ops& sync) { std::rotate(sync.begin(), Barrier(sync, 0) + 1, sync.end() - 1); }

void IndexFirst(Ops& sync, int64 entries, int64 front) {
  Ops first, rest;
  bool data = true;
  for (Op const& op : sync) {
    data = data && !op.IsBarrier();
    int64 const end = op.at + static_cast<int64>(op.bytes.size());
    if (data || op.kind != Op::kWrite || end <= entries || op.at >= front) {
      rest.push_back(op);
      continue;
    }
    auto const cut = [&](int64 from, int64 to, Ops& ops) {
      if (from < to)
        ops.push_back({Op::kWrite, op.file, from,
                       op.bytes.substr(static_cast<std::size_t>(from - op.at),
                                       static_cast<std::size_t>(to - from))});
    };
    cut(op.at, std::min(end, entries), rest);
    cut(std::max(op.at, entries), std::min(end, front - 12), first);
    cut(std::max(op.at, front - 12), end, rest);
  }
  first.push_back({Op::kFlush});
  sync = std::move(first);
  sync.insert(sync.end(), rest.begin(), rest.end());
}

void PromiseEarly(Ops& sync) { std::rotate(Barrier(sync, -1), sync.end() - 1, sync.end()); }

void ImageBeforeBarrier(Ops& sync) {
  auto const barrier = Barrier(sync, 0);
  std::rotate(barrier, barrier + 1, sync.end() - 1);
}

// The index lacks its last entry.
void OneEntryLess(Ops& sync, int64 entries, int64 front, bool image) {
  for (auto op = sync.rbegin(); op != sync.rend(); ++op) {
    if (op->kind != Op::kWrite || (op->file != 0) != image) continue;
    int64 const end = op->at + static_cast<int64>(op->bytes.size());
    for (int64 at = entries + (front - 12 - entries) / 16 * 16 - 16; at >= entries; at -= 16) {
      if (at < op->at || at + 16 > end) continue;
      auto const from = static_cast<std::size_t>(at - op->at);
      if (op->bytes.compare(from, 16, std::string(16, '\0')) == 0) continue;
      op->bytes.replace(from, 16, std::string(16, '\0'));
      return;
    }
  }
}

}  // namespace

std::vector<Plant> Plants(Recorded const& recorded) {
  Ops const& ops = recorded.ops;
  bool const image = recorded.mode == Mode::kCallback;
  int64 const entries = recorded.entries, front = image ? INT32_MAX : recorded.front;
  std::vector<Plant> plants;
  auto const plant = [&](char const* name, Edit const& edit) {
    plants.push_back({name, EditSyncs(ops, edit)});
  };
  auto const drop = [](int n) { return [n](Ops& sync) { sync.erase(Barrier(sync, n)); }; };
  plant("no barrier behind the data", drop(0));
  plant("promise before the last barrier", PromiseEarly);
  plant("count off by one", [&](Ops& sync) { OneEntryLess(sync, entries, front, image); });
  if (image) {
    plant("image before the data", FrontFirst);
    plant("image before the data is durable", ImageBeforeBarrier);
    plant("no barrier behind the image", drop(1));
    plant("no barrier behind its name", drop(2));
  } else {
    plant("no barrier behind the headers", drop(-1));
    plant("headers before the data", FrontFirst);
    plant("index before the data", [&](Ops& sync) { IndexFirst(sync, entries, front); });
  }
  return plants;
}

}  // namespace kestro::crash
