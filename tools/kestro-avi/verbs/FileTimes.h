// When the files of a recording start: one after the other, and by the clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "avi/KeepMarker.h"
#include "avi/StartTime.h"
#include "cli/Documents.h"
#include "media/TimedText.h"

namespace kestro::tool {

// A time that is given on the command line: from the beginning of the first file, or a date.
struct Moment {
  std::string option;
  std::int64_t time_ns = 0;
  bool date = false;

  static Moment Parse(std::string const& option, std::string const& text);  // throws Error
};

class FileTimes {
 public:
  struct File {
    std::string path;
    std::int64_t begin_ms, length_ms;     // as if there were no gaps between the files
    std::optional<avi::StartTime> start;  // as the file stores it
    std::vector<TimedText> texts;         // with times in this file
    std::vector<avi::KeepMarker::Event> marks;
  };
  void Add(File file) { _files.push_back(std::move(file)); }

  // Where a part begins or ends, as if there were no gaps. A date between two files is the
  // beginning of the later one or the end of the earlier one. Where the clock was set back, a part
  // reaches from the first file that has the date to the last one. Throws Error for a date outside
  // of all files, and when none of them has one.
  std::int64_t Begin_ms(Moment const& moment) const;
  std::int64_t End_ms(Moment const& moment) const;

  std::string Table() const;  // for people
  Json List() const;
  Json Texts() const;
  Json Events() const;
  bool HasStarts() const;

 private:
  // An event, with its times as if there were no gaps between the files; -1: unknown.
  struct Mark {
    avi::KeepMarker::Event event;
    std::int64_t at_ms, begin_ms, end_ms;
    std::vector<std::string> files;
  };
  std::vector<Mark> Marks() const;
  std::int64_t Find_ms(std::string const& date) const;
  std::vector<File> Dated() const;
  std::string Row(File const& file, std::int64_t begin_ms, std::int64_t end_ms) const;
  [[noreturn]] void Refuse(Moment const& moment) const;

  std::vector<File> _files;
};

}  // namespace kestro::tool
