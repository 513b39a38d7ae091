#include "repair/MendPlan.h"

#include <cerrno>
#include <cstring>

#include "avi/HeadCopy.h"
#include "avi/SlotFile.h"
#include "cli/Errors.h"

namespace kestro::tool {

using base::Convert4;

static constexpr int64 kEntry = 16;
static constexpr unsigned kIdx1 = Convert4("idx1");

MendPlan::MendPlan(record::Storage& storage, InPlaceJob const& job, InPlaceReport& report)
    : _storage(storage), _job(job), _report(report) {
  Reopen();
  ReadHead();
  _report.tracks = _layout.tracks;
  Check();
  if (!_layout.own) return;
  OpenSide();
  ChooseSource();
  FindRest();
  if (_report.interrupted) return;
  AdoptIndex();
  ChooseTarget();
  AddFields();
  FillReport();
}

void MendPlan::Reopen() {
  auto file = _storage.Open(_job.path, "rb");
  if (file == nullptr) throw Error(kIo, _job.name + ": " + std::strerror(errno));
  _file = std::make_unique<avi::RiffReader>(std::move(file), _job.name);
}

// A damaged head is not mended, but a copy can be made if there is another one.
void MendPlan::ReadHead() try {
  _layout = ReadLayout(*_file, _job.name, [this] { return _storage.Open(_job.path, "rb"); });
} catch (Error const& error) {
  bool const other = avi::HeadCopy::Find(*_file) || !Image::Find(_job.path).empty();
  if (error.Code() == kUnusable && other) Refuse("its header is damaged");
  throw;
}

// Whether there is a copy of the head, with other tracks.
bool MendPlan::HeadDiffers() try {
  auto const copy = avi::HeadCopy::Find(*_file, 0, _layout.Data());
  if (!copy) return false;
  auto memory = std::make_unique<base::IOBuffer>(static_cast<int>(copy->head.size()));
  memory->Write(copy->head.data(), static_cast<unsigned>(copy->head.size()));
  Head here, there;
  here.tracks = _layout.tracks;
  here.data = _layout.Data();
  there.tracks = avi::AviFile(std::move(memory), _job.name).Tracks();
  there.data = copy->places.data;
  return !SameTracks(here, there);
} catch (Error const&) {
  return false;  // not a copy of this head
}

void MendPlan::Refuse(std::string const& why) const {
  throw Error(kUnusable, _job.name + ": cannot be mended in place: " + why +
                             "; make a copy with \"repair -o\"");
}

// Refuses what other programs have written, unless it is whole.
void MendPlan::Check() {
  avi::Chunk next;
  int64 const size = _file->Size(), end = _layout.RiffEnd() + _layout.RiffEnd() % 2;
  if (_file->Header(end, size, next) && next.id == Convert4("RIFF"))
    Refuse("it has several RIFF parts");
  if (HeadDiffers()) Refuse("its header is damaged");
  if (_layout.own) return;
  bool const indexed = _layout.front.id != 0 || (_file->Header(_layout.MoviEnd(), size, next) &&
                                                 next.id == kIdx1 && !next.Cut());
  if (!indexed || _layout.RiffEnd() > size || _layout.MoviEnd() > end)
    Refuse("it is incomplete, and not a recording of this system");
}

void MendPlan::ForEachKnown(Source source, avi::EntrySink const& sink) {
  if (source == Source::kFront) avi::ReadEntries(*_file, _layout.front, 0, sink, false, true);
  if (source == Source::kBack) avi::ReadEntries(*_file, _back, 0, sink);
  if (source == Source::kSide) _image->ForEachEntry(sink);
}

Coverage MendPlan::Cover(Source source) {
  Coverage coverage(*_file, _layout);
  ForEachKnown(source, [&](avi::IndexEntry const& entry) { coverage.Add(entry); });
  coverage.Finish();
  return coverage;
}

// Whether it can only be the rest of a recording that was cut off before its first sync.
static bool IsBlank(base::IO& file) {
  char const none[8] = {};
  char bytes[8] = {};
  unsigned const n = file.Read(bytes, 8);
  return n <= 8 && (std::memcmp(bytes, none, n) == 0 || std::memcmp(bytes, "kestslot", 8) == 0);
}

void MendPlan::OpenSide() {
  std::string const side = Image::Find(_job.path);
  if (side.empty()) return;
  std::string mismatch;
  try {
    auto image = std::make_unique<Image>(side);
    Head head;
    head.tracks = _layout.tracks;
    head.data = _layout.Data();
    if (!SameTracks(head, image->Headers())) mismatch = "its headers belong to another recording";
    _image = std::move(image);
    if (mismatch.empty()) mismatch = Cover(Source::kSide).Fault();
  } catch (Error const& error) {
    _image.reset();
    auto const file = _storage.Open(side, "rb");
    if (file == nullptr || !IsBlank(*file)) mismatch = error.what();
  }
  if (!mismatch.empty()) {
    _image.reset();
    _report.warnings.push_back(side + ": not the side file of " + _job.name + ": " + mismatch +
                               "; it is left as it is");
    return;
  }
  _report.side = side;
  for (std::string const& path : avi::SlotFile::Names(_job.path + avi::SlotFile::kEnding))
    if (_storage.Exists(path)) _sides.push_back(path);
}

void MendPlan::Use(Source source, Coverage const& coverage) {
  _source = source;
  _entries = coverage.Entries();
  _sums = coverage.Sums();
  _known = coverage.End();
  _all = coverage.All();
  _gone = coverage.Beyond();
}

// Whether an index after the data has all packets before it.
bool MendPlan::CoverAll(avi::Chunk const& index, std::optional<Coverage>& coverage) {
  _back = index;
  coverage.emplace(Cover(Source::kBack));
  return coverage->Good() && coverage->All() && !index.Cut() && coverage->Entries() != 0 &&
         static_cast<base::uint64>(index.size) == coverage->Entries() * kEntry &&
         coverage->Reaches(index.offset);
}

void MendPlan::ChooseSource() {
  _sums.resize(_layout.tracks.size());
  _known = _layout.Data();
  std::optional<Coverage> back;
  avi::Chunk index;
  bool const listed = _layout.MoviEnd() > _layout.Data() &&
                      _file->Header(_layout.MoviEnd(), _file->Size(), index) && index.id == kIdx1;
  if (listed && CoverAll(index, back)) {
    Use(Source::kBack, *back);
    _dataEnd = index.offset;
  } else if (_layout.front.id != 0) {
    Coverage const front = Cover(Source::kFront);
    if (!front.Good()) Refuse(front.Fault());
    Use(Source::kFront, front);
  } else if (_image) {
    Use(Source::kSide, Cover(Source::kSide));
  } else if (back && back->Good()) {
    Use(Source::kBack, *back);
  }
}

void MendPlan::FindRest() {
  _added.begin = _added.end = _known;
  _report.counts.lost.resize(_sums.size());
  if (_dataEnd != 0) return;
  try {
    _added = FindNewData(*_file, _layout, _known, _job.advance);
  } catch (Error const& error) {
    Refuse(error.what());
  }
  _report.interrupted = _added.interrupted;
  _report.counts = _added.counts;
  _report.counts.losses.clear();
  _dataEnd = _added.end + _added.end % 2;
  for (std::size_t i = 0; i < _sums.size(); ++i) {
    _sums[i] += _added.sums[i];
    _newEntries += _added.sums[i].entries;
  }
}

// An index that was written, but whose place the headers do not show yet, knows the key frames
// best.
void MendPlan::AdoptIndex() {
  avi::Chunk index;
  std::optional<Coverage> coverage;
  bool const there = _back.offset != _dataEnd && _added.holes.empty() &&
                     _file->Header(_dataEnd, _file->Size(), index) && index.id == kIdx1;
  avi::Chunk const other = _back;
  if (!there || !CoverAll(index, coverage)) {
    _back = other;
    return;
  }
  Use(Source::kBack, *coverage);
  _added = {};
  _newEntries = 0;
}

bool MendPlan::ForEachEntry(avi::EntrySink const& sink, bool all) {
  base::uint64 left = all ? _entries : 0;
  if (all)
    ForEachKnown(_source, [&](avi::IndexEntry const& entry) {
      if (left == 0) return;
      --left;
      sink(entry);
    });
  return left == 0 && _added.ForEachEntry(*_file, _layout, sink);
}

}  // namespace kestro::tool
