#include "recorder/SegmentNames.h"

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "avi/SlotFile.h"
#include "recorder/Catalogue.h"
#include "recorder/Refusal.h"
#include "recorder/StorageOf.h"

namespace kestro::record {

namespace fs = std::filesystem;

std::string FolderOf(std::string const& path) {
  return path.substr(0, path.rfind('/') + 1);  // npos + 1 is 0
}

SegmentNames::SegmentNames(RecorderOptions const& options)
    : _options(options),
      _folder(FolderOf(options.path)),
      _pattern(options.path.substr(_folder.size())),
      _goesOn(!options.overwrite && (_pattern.Numbered() || options.retention.Any())) {
  if (!_pattern.Valid())
    throw Refusal(Code::kInvalid, options.path +
                                      ": use % in the name only for one number, such as %05d, or "
                                      "for a date (%Y %m %d %H %M %S) with the number %05N; %% is "
                                      "a percent sign");
  if (_folder.size() == options.path.size())
    throw Refusal(Code::kInvalid, "\"" + options.path + "\" is not a file name");
  if (!_goesOn) CheckFirst();
  if (_goesOn) _number = Highest();
  if (_number >= avi::NamePattern::kLargest)
    throw Refusal(Code::kInvalid, options.path + ": a file has the largest number");
}

void SegmentNames::CheckFirst() const {
  std::error_code none;
  std::string const first = Name(1, 0);
  if (IsSpecial(first))
    throw Refusal(Code::kIo,
                  first + (fs::is_directory(first, none) ? ": is a directory" : ": is not a file"));
  if (std::string const why = Obstacle(first); !why.empty()) throw Refusal(Code::kInvalid, why);
}

// The highest number in the folder, whatever has it. Where that cannot be known, names that exist
// are still skipped.
std::uint64_t SegmentNames::Highest() const {
  std::vector<Storage::Entry> entries;
  static_cast<void>(StorageOf(_options).List(_folder, entries));
  std::uint64_t highest = 0;
  for (Storage::Entry const& entry : entries)
    if (auto const own = Catalogue::Recognise(_pattern, entry.name))
      highest = std::max(highest, own->number);
  return highest;
}

// Whether the name belongs to something that must not be replaced by a file, such as a device.
bool SegmentNames::IsSpecial(std::string const& path) const {
  std::error_code none;
  auto const status = fs::status(path, none);
  return _options.storage == nullptr && fs::exists(status) && !fs::is_regular_file(status);
}

std::string SegmentNames::Name(std::uint64_t number, std::int64_t start_ns) const {
  auto const seconds = static_cast<std::time_t>(start_ns / 1000000000);
  std::tm local = {};
  if (_pattern.Dated()) localtime_r(&seconds, &local);
  return _folder + _pattern.Format(number, local);
}

std::string SegmentNames::Next(std::int64_t start_ns) {
  bool const checked = _number == 0 && !_goesOn;
  while (!checked && !Obstacle(Name(_number + 1, start_ns)).empty()) ++_number;
  return Name(++_number, start_ns);
}

std::string SegmentNames::Current(std::int64_t start_ns) {
  while (Dated() && !Obstacle(Name(_number, start_ns)).empty()) ++_number;
  return Name(_number, start_ns);
}

// Why a file cannot be written; empty if it can.
std::string SegmentNames::Obstacle(std::string const& name) const {
  std::string why = IsSpecial(name) ? name + ": is not a file" : Obstacle(name, "");
  if (_options.sync.mode != SyncOptions::kCallback) return why;
  for (std::string const& side : avi::SlotFile::Names(name + avi::SlotFile::kEnding))
    if (why.empty())
      why = Obstacle(side, ", with the headers and index of a recording that was cut off");
  return why;
}

std::string SegmentNames::Obstacle(std::string const& path, char const* advice) const {
  if (!StorageOf(_options).Exists(path)) return {};
  if (!_options.overwrite) return path + ": exists already" + advice;
  std::error_code none;
  for (std::string const& kept : _options.keep)
    if (fs::equivalent(kept, path, none)) return path + ": is an input too";
  return {};
}

}  // namespace kestro::record
