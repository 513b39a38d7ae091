#include "crash/Plants.h"

#include <algorithm>
#include <functional>
#include <map>

namespace kestro::crash {

namespace {

// The operations of one sync, up to its promise: data and its barrier, then index and headers, or
// an image, and barriers.
using Edit = std::function<void(Ops& sync)>;

// Applies a change to every sync but the first and those of closing.
Ops EditSyncs(Ops const& ops, Edit const& edit, bool ordinary) {
  Ops edited, sync;
  int promises = 0;
  auto const all =
      std::count_if(ops.begin(), ops.end(), [](Op const& op) { return op.kind == Op::kPromise; });
  for (Op const& op : ops) {
    sync.push_back(op);
    if (op.kind != Op::kPromise) continue;
    ++promises;
    if (promises > 1 && promises < all - ordinary) edit(sync);
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

// What refers to the data is written before it.
void FrontFirst(Ops& sync) { std::rotate(sync.begin(), Barrier(sync, 0) + 1, sync.end() - 1); }

void PromiseEarly(Ops& sync) { std::rotate(Barrier(sync, -1), sync.end() - 1, sync.end()); }

void ImageBeforeBarrier(Ops& sync) {
  auto const barrier = Barrier(sync, 0);
  std::rotate(barrier, barrier + 1, sync.end() - 1);
}

bool Grows(Ops const& sync) {
  return std::any_of(sync.begin(), sync.end(), [](Op const& op) { return op.kind == Op::kName; });
}

// The syncs with each image in a single write, whatever the slots held already: the last write to
// another file is that of an image, after the one of the slot's head.
Ops WithWholeImages(Ops const& ops) {
  std::map<int, test::MemoryIO> files;
  Ops whole;
  std::size_t head = 0;
  for (Op const& op : ops) {
    bool const other = op.kind == Op::kWrite && op.file != 0;
    if (other) {
      files[op.file].Seek(op.at, base::IO::kBegin);
      files[op.file].Write(op.bytes.data(), static_cast<unsigned>(op.bytes.size()));
    }
    if (other && op.at >= 4096 && op.bytes.size() == 16) head = whole.size();
    if (other && head != 0 && head < whole.size()) continue;  // of the image
    if (op.kind == Op::kFlush && op.file != 0 && head != 0) {
      avi::SlotFile::Image image;
      avi::SlotFile::Read(files[op.file], image);
      whole.push_back({Op::kWrite, op.file, whole[head].at + 16,
                       std::string(image.bytes.begin(), image.bytes.end())});
      head = 0;
    }
    whole.push_back(op);
  }
  return whole;
}

Ops::iterator ImageIn(Ops& sync) {
  auto op = sync.end() - 1;
  while (op->kind != Op::kWrite || op->file == 0) --op;
  return op;
}

// Each image is a new file, which takes the name of the one before.
void Rename(Ops& sync, int& last) {
  auto const image = ImageIn(sync);
  std::string const bytes = image->bytes;
  auto const barrier = Barrier(sync, 0) + 1;
  int const fresh = last < 100 ? 100 : last + 1;
  Ops const renamed = {
      {Op::kWrite, fresh, 0, bytes}, {Op::kFlush, fresh}, {Op::kName, fresh, last}, {Op::kFolder}};
  last = fresh;
  sync.erase(barrier, sync.end() - 1);
  sync.insert(sync.end() - 1, renamed.begin(), renamed.end());
}

// The old file loses its name as soon as the new one has one.
void RemoveEarly(Ops& sync) {
  auto const isName = [](Op const& op) { return op.kind == Op::kName; };
  auto const made = std::find_if(sync.begin(), sync.end(), isName) + 1;
  auto const removed = std::find_if(made, sync.end(), isName);
  std::rotate(made, removed, removed + 1);
}

// Every image goes into the first slot.
void SameSlot(Ops& sync) {
  auto const image = ImageIn(sync);
  (image - 1)->at = 4096;
  image->at = 4096 + 16;
}

// Applies a change to the closing of a file: the index after the data and its barrier, the size of
// RIFF and its barrier, then the tag of the old index and its barrier.
Plant Closing(Recorded const& recorded, char const* name, Edit const& edit) {
  auto const from = recorded.ops.begin() + static_cast<std::ptrdiff_t>(recorded.closed);
  Ops closing(from, recorded.ops.end());
  edit(closing);
  Plant plant{name, {recorded.ops.begin(), from}};
  plant.ops.insert(plant.ops.end(), closing.begin(), closing.end());
  return plant;
}

void TagFirst(Ops& closing) {
  std::rotate(closing.begin(), Barrier(closing, 1) + 1, Barrier(closing, 2) + 1);
}

Ops WithoutCopy(Ops ops) {
  for (Op& op : ops)
    if (auto const at = op.bytes.find("kestroHC"); at != op.bytes.npos)
      op.bytes.replace(at, 8, 8, '\0');
  return ops;
}

}  // namespace

std::vector<Plant> Plants(Recorded const& recorded) {
  auto const drop = [](int n) { return [n](Ops& sync) { sync.erase(Barrier(sync, n)); }; };
  if (recorded.scenario.full)
    return {Closing(recorded, "no barrier after the second index", drop(0)),
            Closing(recorded, "JUNK before the second index", TagFirst)};
  bool const image = recorded.scenario.mode == Mode::kCallback;
  Ops const ops = image ? WithWholeImages(recorded.ops) : recorded.ops;
  std::vector<Plant> plants;
  auto const plant = [&](char const* name, Edit const& edit) {
    plants.push_back({name, EditSyncs(ops, edit, !image)});
  };
  plant("no barrier after the data", drop(0));
  plant("promise before the last barrier", PromiseEarly);
  if (image) {
    auto const growing = [](Edit const& edit) {
      return [edit](Ops& sync) {
        if (Grows(sync)) edit(sync);
      };
    };
    plant("image before the data", FrontFirst);
    plant("image before the data is durable", ImageBeforeBarrier);
    plant("no barrier after the image", drop(1));
    plant("one slot for all images", SameSlot);
    plants.push_back({"checksums not checked", recorded.ops, false, true});
    plant("rename instead of slots", [last = 1](Ops& sync) mutable { Rename(sync, last); });
    plant("no barrier after the name of a larger file", growing(drop(2)));
    plant("no barrier after a larger file", growing(drop(1)));
    plant("a larger file is durable after the old one is removed", growing(RemoveEarly));
  } else {
    plant("no barrier after the headers", drop(-1));
    plant("headers before the data", FrontFirst);
    plants.push_back({"no copy of the head", WithoutCopy(ops), true});
  }
  return plants;
}

}  // namespace kestro::crash
