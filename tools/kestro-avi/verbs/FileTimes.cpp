#include "verbs/FileTimes.h"

#include <algorithm>
#include <cstdio>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "cli/WallTime.h"
#include "verbs/Details.h"

namespace kestro::tool {

using File = FileTimes::File;

static constexpr std::int64_t kMs = 1000000;

Moment Moment::Parse(std::string const& option, std::string const& text) {
  if (IsWallTime(text)) return {option, ParseWallTime_ns(option, text), true};
  return {option, ParseTime_ns(option, text), false};
}

static std::int64_t Start_ms(File const& file) { return file.start->time_ns / kMs; }
static std::int64_t Stop_ms(File const& file) { return Start_ms(file) + file.length_ms; }
static std::int64_t End_ms(File const& file) { return file.begin_ms + file.length_ms; }

// The files that store a date.
std::vector<File> FileTimes::Dated() const {
  std::vector<File> dated;
  std::copy_if(_files.begin(), _files.end(), std::back_inserter(dated),
               [](File const& file) { return file.start && file.start->set; });
  return dated;
}

bool FileTimes::HasStarts() const {
  return std::any_of(_files.begin(), _files.end(),
                     [](File const& file) { return file.start.has_value(); });
}

void FileTimes::Refuse(Moment const& moment) const {
  auto const dated = Dated();
  if (dated.empty())
    throw Error(kUsage, moment.option +
                            ": no file stores the date at which it starts; give a time "
                            "from the beginning of the first file instead");
  std::int64_t first_ms = INT64_MAX, last_ms = 0;
  for (File const& file : dated) {
    first_ms = std::min(first_ms, Start_ms(file));
    last_ms = std::max(last_ms, Stop_ms(file));
  }
  throw Error(kUsage, moment.option + ": " + avi::UtcText(moment.time_ns) +
                          " is outside of the files, which cover " + avi::UtcText(first_ms * kMs) +
                          " to " + avi::UtcText(last_ms * kMs));
}

std::int64_t FileTimes::Begin_ms(Moment const& moment) const {
  std::int64_t const time_ms = moment.time_ns / kMs;
  if (!moment.date) return time_ms;
  auto const dated = Dated();
  File const* next = nullptr;
  bool before = false;  // a file ends before
  for (File const& file : dated) {
    if (Start_ms(file) <= time_ms && time_ms < Stop_ms(file))
      return file.begin_ms + time_ms - Start_ms(file);
    before = before || Stop_ms(file) <= time_ms;
    if (Start_ms(file) > time_ms && (next == nullptr || Start_ms(file) < Start_ms(*next)))
      next = &file;
  }
  if (next == nullptr || !before) Refuse(moment);
  return next->begin_ms;
}

std::int64_t FileTimes::End_ms(Moment const& moment) const {
  std::int64_t const time_ms = moment.time_ns / kMs;
  if (!moment.date) return time_ms;
  auto const dated = Dated();
  File const* last = nullptr;
  bool after = false;  // a file starts after
  for (auto file = dated.rbegin(); file != dated.rend(); ++file) {
    if (Start_ms(*file) <= time_ms && time_ms <= Stop_ms(*file))
      return file->begin_ms + time_ms - Start_ms(*file);
    after = after || Start_ms(*file) > time_ms;
    if (Stop_ms(*file) < time_ms && (last == nullptr || Stop_ms(*file) > Stop_ms(*last)))
      last = &*file;
  }
  if (last == nullptr || !after) Refuse(moment);
  return tool::End_ms(*last);
}

Json FileTimes::List() const {
  Json list = Json::array();
  for (File const& file : _files) {
    Json json{{"file", file.path}, {"begin_ms", file.begin_ms}, {"end_ms", tool::End_ms(file)}};
    AddSoftware(json, {"", file.start});
    list.push_back(std::move(json));
  }
  return list;
}

// When something happened in a file, by the clock; empty if unknown.
static std::string Date(FileTimes::File const& file, std::int64_t time_ms) {
  if (!file.start || time_ms > INT64_MAX / kMs - file.start->time_ns / kMs) return "";
  return avi::StartTime{file.start->time_ns + time_ms * kMs, file.start->set}.Text();
}

Json FileTimes::Texts() const {
  Json list = Json::array();
  for (File const& file : _files)
    for (TimedText const& text : file.texts) {
      list.push_back(
          {{"file", file.path}, {"at_ms", file.begin_ms + text.start_ms}, {"text", text.text}});
      if (file.start) list.back()["start"] = Date(file, text.start_ms);
    }
  return list;
}

// Where the files have this date; -1 if they do not, or if it is none.
std::int64_t FileTimes::Find_ms(std::string const& date) const {
  auto const time = avi::IsoTime::Parse(date);
  if (!time || !time->zoned) return -1;
  std::int64_t const time_ms = time->time_ns / kMs;
  for (File const& file : Dated())
    if (Start_ms(file) <= time_ms && time_ms <= Stop_ms(file))
      return file.begin_ms + time_ms - Start_ms(file);
  return -1;
}

// An event that several files are kept for is one mark.
std::vector<FileTimes::Mark> FileTimes::Marks() const {
  std::vector<Mark> marks;
  for (File const& file : _files)
    for (avi::KeepMarker::Event const& event : file.marks) {
      auto const same = std::find_if(marks.begin(), marks.end(), [&](Mark const& mark) {
        return !event.time.empty() && mark.event.label == event.label &&
               mark.event.time == event.time && mark.event.from == event.from &&
               mark.event.to == event.to;
      });
      if (same != marks.end()) {
        same->files.push_back(file.path);
        continue;
      }
      std::int64_t const at_ms = Find_ms(event.time);
      std::int64_t const begin_ms = Find_ms(event.from), end_ms = Find_ms(event.to);
      marks.push_back({event,
                       at_ms,
                       begin_ms < 0 ? at_ms : begin_ms,
                       end_ms < 0 ? at_ms : end_ms,
                       {file.path}});
    }
  return marks;
}

Json FileTimes::Events() const {
  Json list = Json::array();
  auto const known = [](std::int64_t time_ms) { return time_ms < 0 ? Json() : Json(time_ms); };
  for (Mark const& mark : Marks())
    list.push_back({{"label", mark.event.label},
                    {"time", mark.event.time},
                    {"window", {{"from", mark.event.from}, {"to", mark.event.to}}},
                    {"at_ms", known(mark.at_ms)},
                    {"begin_ms", known(mark.begin_ms)},
                    {"end_ms", known(mark.end_ms)},
                    {"files", mark.files}});
  return list;
}

// The columns before the last one; times are those in the file.
std::string FileTimes::Row(File const& file, std::int64_t begin_ms, std::int64_t end_ms) const {
  char times[64], date[64] = "";
  std::snprintf(times, sizeof times, "%12.3f %12.3f  ", double(file.begin_ms + begin_ms) / 1000,
                double(file.begin_ms + end_ms) / 1000);
  if (HasStarts()) std::snprintf(date, sizeof date, "%-24s  ", Date(file, begin_ms).c_str());
  return std::string(times) + date;
}

static std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

std::string FileTimes::Table() const {
  auto const head = [this](char const* what) {
    return std::string("       begin          end  ") +
           (HasStarts() ? "start                     " : "") + what + "\n";
  };
  std::string files = head("file"), texts;
  for (File const& file : _files) {
    files += Row(file, 0, file.length_ms) + Shown(file.path) + "\n";
    for (TimedText const& text : file.texts) {
      texts += Row(file, text.start_ms, text.end_ms) + Shown(OneLine(text.text)) + "\n";
    }
  }
  if (!texts.empty()) files += head("text") + texts;
  auto const marks = Marks();
  if (!marks.empty()) files += head("event");
  auto const number = [](std::int64_t time_ms) {
    char text[32] = "-";
    if (time_ms >= 0) std::snprintf(text, sizeof text, "%.3f", double(time_ms) / 1000);
    return std::string(text);
  };
  for (Mark const& mark : marks) {
    char line[128];
    std::snprintf(line, sizeof line, HasStarts() ? "%12s %12s  %-24s  " : "%12s %12s  ",
                  number(mark.begin_ms).c_str(), number(mark.end_ms).c_str(),
                  mark.event.time.substr(0, 24).c_str());
    files += line + Shown(OneLine(mark.event.label)) + "\n";
  }
  return files;
}

}  // namespace kestro::tool
