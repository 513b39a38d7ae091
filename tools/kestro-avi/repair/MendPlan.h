// Finds out what a recording lacks, and how it is completed without moving data.
#pragma once

#include <memory>
#include <optional>

#include "repair/Image.h"
#include "repair/InPlace.h"
#include "repair/NewData.h"

namespace kestro::tool {

// Only reads the recording.
class MendPlan {
 public:
  // Fills in the report. Throws Error if the recording cannot be mended in place.
  MendPlan(record::Storage& storage, InPlaceJob const& job, InPlaceReport& report);

  bool Needed() const { return _needed; }

  struct Field {
    int64 at;
    unsigned value;
  };
  // Where the complete index will be: it is after the data already; it is before the data, where
  // the new entries fit; it must be written after the data.
  enum class Index { kThere, kFront, kBack };
  Index Target() const { return _target; }
  Layout const& Parts() const { return _layout; }
  std::vector<Hole> const& Holes() const { return _added.holes; }
  base::uint64 Total() const { return _entries + _newEntries; }  // index entries
  base::uint64 Held() const { return _entries; }                 // those that an index has already
  int64 DataEnd() const { return _dataEnd; }
  int64 Size() const { return _size; }  // of the mended file
  // A part of the index after the data is there already, and readers may be using it.
  bool Resumes() const { return _resumes; }
  // The end of what the index before the data has after the entries that count; 0 for nothing.
  int64 StaleEnd() const { return _staleEnd; }
  std::vector<Field> const& Fields() const { return _fields; }  // that change
  bool Retires() const { return _retires; }  // the index before the data lacks entries for good
  std::vector<std::string> const& Sides() const { return _sides; }  // side files to remove

  // Calls `sink` for the entries of the complete index, or those that are new. The holes must be
  // JUNK. Returns false if the file has changed in the meantime.
  bool ForEachEntry(avi::EntrySink const& sink, bool all);
  void Reopen();  // to see what was written since

  [[noreturn]] void Refuse(std::string const& why) const;

 private:
  enum class Source { kNone, kBack, kFront, kSide };

  void ReadHead();
  bool HeadDiffers();
  void Check();
  void OpenSide();
  void ChooseSource();
  Coverage Cover(Source source);
  bool CoverAll(avi::Chunk const& index, std::optional<Coverage>& coverage);
  void Use(Source source, Coverage const& coverage);
  void FindRest();
  void AdoptIndex();
  void ChooseTarget();
  void FindStale();
  bool FindsPart();
  void AddFields();
  void AddField(int64 at, base::uint64 value);
  void FillReport();
  void ForEachKnown(Source source, avi::EntrySink const& sink);

  record::Storage& _storage;
  InPlaceJob const& _job;
  InPlaceReport& _report;
  std::unique_ptr<avi::RiffReader> _file;
  Layout _layout;
  std::unique_ptr<Image> _image;  // in the side file; null if there is none
  std::vector<std::string> _sides;
  Source _source = Source::kNone;
  avi::Chunk _back;             // the index after the data
  base::uint64 _entries = 0;    // of the source
  std::vector<TrackSum> _sums;  // by track, of all packets
  std::vector<TrackSum> _gone;  // those that the source names beyond the end of the file
  int64 _known = 0;             // the end of the data that the source covers
  bool _all = true;             // no entry of the source points beyond the end of the file
  NewData _added;               // the data after that
  base::uint64 _newEntries = 0;
  Index _target = Index::kThere;
  int64 _dataEnd = 0, _size = 0, _staleEnd = 0;
  bool _resumes = false, _retires = false, _needed = false;
  std::vector<Field> _fields;
};

}  // namespace kestro::tool
