#include "repair/InPlace.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "avi/HeadCopy.h"
#include "cli/Errors.h"
#include "repair/Busy.h"
#include "repair/MendPlan.h"

namespace kestro::tool {

namespace fs = std::filesystem;

using avi::Words;
using base::Convert4;
using Index = MendPlan::Index;

Counted InPlaceReport::Kept() const {
  Counted all;
  for (Counted const& track : kept) all += track;
  return all;
}

Counted InPlaceReport::Lost() const {
  Counted all = counts.unknown;
  for (Counted const& track : counts.lost) all += track;
  return all;
}

namespace {

constexpr int64 kHead = 8, kEntry = 16;
constexpr std::size_t kBlock = 4096 * kEntry;
constexpr unsigned kIdx1 = Convert4("idx1"), kJunk = Convert4("JUNK");

class Mender {
 public:
  Mender(record::Storage& storage, InPlaceJob const& job, MendPlan& plan);

  void Run();

 private:
  bool Cut();
  bool WriteIndex();
  bool CompleteFront();
  bool WriteEntries(int64 at, std::string block, bool all);
  bool Store(int64 at, std::string const& block);
  bool WriteFields();
  bool RetireFront();
  void RemoveSides();
  bool WriteAt(int64 at, std::string const& bytes);
  bool Flush() { return _file->FlushData(); }
  [[noreturn]] void Fail(char const* state);

  record::Storage& _storage;
  InPlaceJob const& _job;
  MendPlan& _plan;
  std::unique_ptr<base::IO> const _file;
  int64 _oldSize = 0;
};

Mender::Mender(record::Storage& storage, InPlaceJob const& job, MendPlan& plan)
    : _storage(storage), _job(job), _plan(plan), _file(storage.Open(job.path, "r+b")) {
  if (_file == nullptr) throw Error(kIo, job.name + ": " + std::strerror(errno));
  _oldSize = _file->Size();
  int const handle = _file->Handle();
  if (handle >= 0 && flock(handle, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    throw Error(kUnusable, job.name + ": another program is changing it");
}

void Mender::Run() {
  if (!Cut()) Fail("it plays as before");
  if (!WriteIndex()) {
    bool const appended = _plan.Target() == Index::kBack;
    int64 const end = _plan.Resumes() ? _oldSize : _plan.DataEnd();
    if (appended && !(_file->Truncate(end) && _file->Flush())) Fail("the change was not undone");
    Fail("it plays as before");
  }
  if (!WriteFields() || !RetireFront()) Fail("repair it again");
  RemoveSides();
}

void Mender::Fail(char const* state) {
  int const error = _file->Error();
  throw Error(kIo, _job.name + ": cannot be mended: " +
                       (error != 0 ? std::strerror(error) : "it has changed") + "; " + state);
}

// Tries twice: the fault may have passed, and half a field would be worse than an old one.
bool Mender::WriteAt(int64 at, std::string const& bytes) {
  auto const size = static_cast<unsigned>(bytes.size());
  for (int tries = 2; tries > 0; --tries)
    if (_file->Seek(at, base::IO::kBegin) && _file->Write(bytes.data(), size) == size) return true;
  return false;
}

// Removes what is after the data, unless it is a part of the index that will be there.
bool Mender::Cut() {
  for (Hole const& hole : _plan.Holes())
    if (!WriteAt(hole.offset, Words({kJunk, static_cast<base::uint64>(hole.size - kHead)})))
      return false;
  bool const keep = _plan.Target() == Index::kThere || _plan.Resumes();
  int64 const end = keep ? std::min(_oldSize, _plan.Size()) : _plan.DataEnd();
  if (_plan.Holes().empty() && end == _oldSize) return true;
  bool const cut = (end == _oldSize || _file->Truncate(end)) && _file->Flush();
  _plan.Reopen();
  return cut;
}

bool Mender::WriteIndex() {
  if (_plan.Target() == Index::kThere) return true;
  if (_plan.Target() == Index::kFront) return CompleteFront();
  return WriteEntries(_plan.DataEnd(), Words({kIdx1, _plan.Total() * kEntry}), true) &&
         _file->Flush();
}

// Adds the new entries after the old ones. If there is anything else, it is removed first.
bool Mender::CompleteFront() {
  int64 const at = _plan.Parts().front.Payload() + static_cast<int64>(_plan.Held()) * kEntry;
  for (int64 from = at, size; from < _plan.StaleEnd(); from += size) {
    size = std::min<int64>(kBlock, _plan.StaleEnd() - from);
    if (!WriteAt(from, std::string(static_cast<std::size_t>(size), '\0'))) return false;
  }
  if (_plan.StaleEnd() != 0 && !Flush()) return false;
  return _plan.Total() == _plan.Held() || (WriteEntries(at, "", false) && Flush());
}

// `block`: what comes before the entries.
bool Mender::WriteEntries(int64 at, std::string block, bool all) {
  bool stored = true;
  auto const store = [&] {
    stored = stored && Store(at, block);
    at += static_cast<int64>(block.size());
    block.clear();
  };
  bool const found = _plan.ForEachEntry(
      [&](avi::IndexEntry const& entry) {
        block +=
            Words({entry.id, entry.flags, static_cast<base::uint64>(entry.offset), entry.size});
        if (block.size() >= kBlock) store();
      },
      all);
  store();
  return found && stored;
}

// Leaves bytes that are there already alone.
bool Mender::Store(int64 at, std::string const& block) {
  if (!_plan.Resumes()) return WriteAt(at, block);
  std::string there(block.size(), '\0');
  if (!_file->Seek(at, base::IO::kBegin)) return false;
  unsigned const n = _file->Read(there.data(), static_cast<unsigned>(there.size()));
  bool const same = n == there.size() && there == block;
  return same || WriteAt(at, block);
}

bool Mender::WriteFields() {
  for (MendPlan::Field const& field : _plan.Fields())
    if (!WriteAt(field.at, Words({field.value}))) return false;
  return _plan.Fields().empty() || Flush();
}

// Readers that find an index before the data prefer it. A large one becomes several chunks: their
// headers take effect with the size of the first one.
bool Mender::RetireFront() {
  bool const retires = _plan.Retires();
  avi::Chunk const& junk = retires ? _plan.Parts().front : _plan.Parts().retired;
  if (retires && !(WriteAt(junk.offset, Words({kJunk})) && Flush())) return false;
  if (junk.id == 0 || junk.size <= _job.largestJunk) return true;
  int64 const piece = (_job.largestJunk - kEntry) / kEntry * kEntry,
              all = junk.size / kEntry * kEntry;
  for (int64 at = piece; at < all; at += piece) {
    int64 const next = at + piece < all ? at + piece : junk.size;
    if (!WriteAt(junk.Payload() + at, Words({kJunk, static_cast<base::uint64>(next - at - kHead)})))
      return false;
  }
  return Flush() && WriteAt(junk.offset + 4, Words({static_cast<base::uint64>(piece)})) && Flush();
}

void Mender::RemoveSides() {
  for (std::string const& path : _plan.Sides())
    if (!_storage.Remove(path))
      throw Error(kIo, path + ": " + std::strerror(errno) + "; " + _job.name + " is whole");
}

}  // namespace

InPlaceReport RepairInPlace(record::Storage& storage, InPlaceJob const& job) {
  InPlaceReport report;
  MendPlan plan(storage, job, report);
  report.whole = !plan.Needed();
  if (!report.whole && !report.interrupted) Mender(storage, job, plan).Run();
  return report;
}

InPlaceReport RepairFile(InPlaceJob job) {
  std::error_code failed;
  fs::path const path = fs::canonical(job.path, failed);
  if (failed) throw Error(kIo, job.name + ": " + failed.message());
  if (fs::is_directory(path, failed)) throw Error(kIo, job.name + ": is a directory");
  if (!fs::is_regular_file(path, failed)) throw Error(kIo, job.name + ": is not a file");
  job.path = path;
  if (IsBeingRecorded(path)) throw Error(kUnusable, job.name + ": is still being recorded");
  record::Storage storage;
  return RepairInPlace(storage, job);
}

}  // namespace kestro::tool
