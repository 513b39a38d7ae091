#include "recorder/SegmentNames.h"

#include <filesystem>

#include "avi/NumberedName.h"
#include "avi/SlotFile.h"
#include "recorder/Refusal.h"
#include "recorder/StorageOf.h"

namespace kestro::record {

namespace fs = std::filesystem;

SegmentNames::SegmentNames(RecorderOptions const& options)
    : _options(options), _output(options.path), _numbered(avi::Numbered(options.path)) {
  if (!avi::IsPattern(_output))
    throw Refusal(Code::kInvalid, _output +
                                      ": use % in the name only for one number, such as "
                                      "%05d; %% is a percent sign");
  if (fs::path(_output).filename().empty())
    throw Refusal(Code::kInvalid, "\"" + _output + "\" is not a file name");
  std::error_code none;
  if (IsSpecial(Name(1)))
    throw Refusal(Code::kIo, Name(1) + (fs::is_directory(Name(1), none) ? ": is a directory"
                                                                        : ": is not a file"));
  if (std::string const why = Obstacle(Name(1)); !why.empty()) throw Refusal(Code::kInvalid, why);
}

// Whether the name belongs to something that must not be replaced by a file, such as a device.
bool SegmentNames::IsSpecial(std::string const& path) const {
  std::error_code none;
  auto const status = fs::status(path, none);
  return _options.storage == nullptr && fs::exists(status) && !fs::is_regular_file(status);
}

std::string SegmentNames::Name(std::uint64_t number) const {
  if (_numbered || number == 1) return avi::NumberedName(_output, number);
  fs::path const path(_output);
  std::string const rest = path.stem().string() + "-%05d" + path.extension().string();
  return avi::NumberedName(path.parent_path() / rest, number);
}

std::string SegmentNames::Next() {
  while (_number > 0 && !Obstacle(Name(_number + 1)).empty()) ++_number;
  return Name(++_number);
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
